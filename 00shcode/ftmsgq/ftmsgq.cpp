#include "00shcode/ftmsgq/ftmsgq.h"

#include <cassert>

#include "00shcode/ftmsgq/queue_log.h"

namespace {

constexpr std::int32_t kDefaultIdleWaitMs = 50;
constexpr std::int32_t kQuota = 10000;
constexpr std::size_t kIdleBatchCapacity = 1024;
constexpr std::int32_t kSweepIntervalMs = 60000;

}  // namespace

CFTMsgQ::CFTMsgQ()
    : m_idle_wait_ms(kDefaultIdleWaitMs), m_timers(GetTickTime()), m_last_sweep(GetTickTime()) {}

CFTMsgQ::~CFTMsgQ() {
  CMyThread::StopThread();
}

void CFTMsgQ::PostMsg(std::uint32_t id, const std::string& key, std::int32_t weight,
                      std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3, std::uintptr_t p4) {
  const FTMsg msg{id, 0, 0, p1, p2, p3, p4};
  const CFTScopedLock guard(&m_queue_lock);
  m_sub_queues.Append(key, weight, msg);
  m_wake.Set();
}

void CFTMsgQ::PostQuit() {
  PostMsg(FTMSG_QUIT, "", 1);
}

void CFTMsgQ::SetTimer(std::uint32_t timer_id, std::int32_t delay_ms, std::uintptr_t p1,
                       std::uintptr_t p2, std::uintptr_t p3, std::uintptr_t p4) {
  const FTTime now = GetTickTime();
  const CFTScopedLock guard(&m_timer_lock);
  m_timers.Add({FTMSG_TIMER, timer_id, delay_ms, p1, p2, p3, p4}, now);
}

void CFTMsgQ::SetTimerAgain(const FTMsg& timer_msg) {
  SetTimer(timer_msg.param1, timer_msg.param2, timer_msg.p1, timer_msg.p2, timer_msg.p3,
           timer_msg.p4);
}

void CFTMsgQ::SetIdleWaitMs(std::int32_t milliseconds) {
  m_idle_wait_ms.Set(milliseconds);
}

std::int32_t CFTMsgQ::RunOnce() {
  assert(IsOwnThread());
  m_idle = ProcessMsgs(0, m_idle ? m_idle_wait_ms.Get() : 0);
  if (m_idle) OnIdle();
  OnLoop();
  return 0;
}

void CFTMsgQ::OnMsg(const FTMsg& msg, std::int32_t draining) {
  OnMsgFields(msg.id, msg.param1, draining, msg.p1, msg.p2, msg.p3, msg.p4);
}

void CFTMsgQ::OnIdle() {}

void CFTMsgQ::OnLoop() {}

std::int32_t CFTMsgQ::OnMsgFields(std::uint32_t id, std::uint32_t param1, std::int32_t,
                                  std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t) {
  if (id == FTMSG_TIMER) {
    QueueLog::MsgNotDealt(this, "TimerID", param1);
  } else {
    QueueLog::MsgNotDealt(this, "MsgID", id);
  }
  return 0;
}

std::vector<FTMsg> CFTMsgQ::TakeQueuedMsgs() {
  std::vector<FTMsg> queued;
  const CFTScopedLock guard(&m_queue_lock);
  m_sub_queues.TakeAll(&queued);
  return queued;
}

// True when nothing was handled.
bool CFTMsgQ::ProcessMsgs(std::int32_t draining, std::int32_t wait_ms) {
  if (IsRunning() == 0) return false;
  m_batch.clear();
  CollectMsgs(wait_ms);
  for (const FTMsg& msg : m_batch) {
    if (msg.id == FTMSG_QUIT) {
      CMyThread::StopThread();
    } else {
      OnMsg(msg, draining);
    }
  }
  if (!m_batch.empty()) return false;
  if (m_batch.capacity() > kIdleBatchCapacity) m_batch = {};
  return true;
}

void CFTMsgQ::CollectMsgs(std::int32_t wait_ms) {
  const FTTime now = GetTickTime();
  CollectTimers(now);
  const CFTScopedLock guard(&m_queue_lock);
  if (m_batch.empty() && m_sub_queues.GetPendingCount() == 0 && wait_ms != 0) {
    m_wake.WaitUnlocked(&m_queue_lock, static_cast<std::uint32_t>(wait_ms));
  }
  if (m_sub_queues.GetPendingCount() > 0) m_sub_queues.Collect(kQuota, &m_batch);
  if (DiffMs(now, m_last_sweep) >= kSweepIntervalMs) {
    m_last_sweep = now;
    m_sub_queues.Sweep();
  }
}

void CFTMsgQ::CollectTimers(const FTTime& now) {
  const CFTScopedLock guard(&m_timer_lock);
  m_timers.TakeDue(now, &m_batch);
}
