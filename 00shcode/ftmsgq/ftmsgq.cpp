#include "00shcode/ftmsgq/ftmsgq.h"

#include <utility>

#include "00shcode/ftmsgq/queue_log.h"

namespace {

constexpr std::int32_t kDefaultIdleWaitMs = 50;
constexpr std::int32_t kQuota = 10000;
constexpr std::int32_t kSweepIntervalMs = 60000;

FTMsg MakeMsg(std::uint32_t id, std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3,
              std::uintptr_t p4) {
  FTMsg msg(id);
  msg.p1 = p1;
  msg.p2 = p2;
  msg.p3 = p3;
  msg.p4 = p4;
  return msg;
}

}  // namespace

CFTMsgQ::CFTMsgQ()
    : m_idle_wait_ms(kDefaultIdleWaitMs),
      m_timers(ft::GetTickTime()),
      m_last_sweep(ft::GetTickTime()) {}

CFTMsgQ::~CFTMsgQ() = default;

void CFTMsgQ::Post(const std::string& key, std::int32_t weight, FTMsg msg) {
  bool asleep = false;
  {
    const CFTScopedLock guard(&m_queue_lock);
    m_sub_queues.Append(key, weight, std::move(msg));
    std::swap(asleep, m_asleep);
  }
  WakeIf(asleep);
}

void CFTMsgQ::PostAll(const std::string& key, std::int32_t weight, std::vector<FTMsg>* msgs) {
  if (msgs->empty()) return;
  bool asleep = false;
  {
    const CFTScopedLock guard(&m_queue_lock);
    m_sub_queues.AppendAll(key, weight, msgs);
    std::swap(asleep, m_asleep);
  }
  WakeIf(asleep);
}

void CFTMsgQ::PostMsg(std::uint32_t id, const std::string& key, std::int32_t weight,
                      std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3, std::uintptr_t p4) {
  Post(key, weight, MakeMsg(id, p1, p2, p3, p4));
}

void CFTMsgQ::PostQuit() {
  PostMsg(FTMSG_QUIT, "", 1);
}

void CFTMsgQ::SetTimer(std::uint32_t timer_id, std::int32_t delay_ms, std::uintptr_t p1,
                       std::uintptr_t p2, std::uintptr_t p3, std::uintptr_t p4) {
  FTMsg timer = MakeMsg(FTMSG_TIMER, p1, p2, p3, p4);
  timer.param1 = timer_id;
  timer.param2 = delay_ms;
  const FTTime now = ft::GetTickTime();
  const CFTScopedLock guard(&m_timer_lock);
  m_timers.Add(std::move(timer), now);
}

void CFTMsgQ::SetTimerAgain(const FTMsg& timer_msg) {
  SetTimer(timer_msg.param1, timer_msg.param2, timer_msg.p1, timer_msg.p2, timer_msg.p3,
           timer_msg.p4);
}

void CFTMsgQ::StopThread() {
  CMyThread::StopThread();
  WakeUp();
}

void CFTMsgQ::WakeUp() {
  m_wake.Set();
}

void CFTMsgQ::WakeIf(bool asleep) {
  if (asleep) WakeUp();
}

bool CFTMsgQ::BeginSleep() {
  const CFTScopedLock guard(&m_queue_lock);
  // A stop that comes later finds the thread asleep, or its wake-up pending.
  m_asleep = IsRunning() != 0 && m_sub_queues.GetPendingCount() == 0;
  return m_asleep;
}

void CFTMsgQ::EndSleep() {
  const CFTScopedLock guard(&m_queue_lock);
  m_asleep = false;
}

std::int32_t CFTMsgQ::RunOnce() {
  AssertOwnThread();
  m_idle = ProcessMsgs(0, m_idle ? m_idle_wait_ms.load() : 0);
  if (m_idle) OnIdle();
  OnLoop();
  return 0;
}

void CFTMsgQ::OnMsg(FTMsg& msg, std::int32_t draining) {
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

// True when nothing was handled. A handler may run a cycle of its own: that one goes on with the
// batch under way, which keeps the order, and may collect further batches.
bool CFTMsgQ::ProcessMsgs(std::int32_t draining, std::int32_t wait_ms) {
  if (IsRunning() == 0) return false;
  if (m_batch.IsEmpty()) CollectMsgs(wait_ms);
  const bool idle = m_batch.IsEmpty();
  while (!m_batch.IsEmpty()) {
    FTMsg msg = m_batch.Pop();
    if (msg.id == FTMSG_QUIT) {
      CMyThread::StopThread();
    } else {
      OnMsg(msg, draining);
    }
  }
  return idle;
}

void CFTMsgQ::CollectMsgs(std::int32_t wait_ms) {
  const FTTime now = ft::GetTickTime();
  wait_ms = CollectTimers(now, wait_ms);
  if (m_batch.IsEmpty() && wait_ms != 0 && IsQueueEmpty()) m_yield.Try();
  const CFTScopedLock guard(&m_queue_lock);
  if (m_batch.IsEmpty() && m_sub_queues.GetPendingCount() == 0 && wait_ms != 0) {
    SleepUntilPosted(wait_ms);
  }
  if (m_sub_queues.GetPendingCount() > 0) m_sub_queues.Collect(kQuota, &m_batch);
  if (ft::ElapsedMs(now, m_last_sweep) >= kSweepIntervalMs) {
    m_last_sweep = now;
    m_sub_queues.Sweep();
  }
}

bool CFTMsgQ::IsQueueEmpty() {
  const CFTScopedLock guard(&m_queue_lock);
  return m_sub_queues.GetPendingCount() == 0;
}

void CFTMsgQ::SleepUntilPosted(std::int32_t wait_ms) {
  m_batch.Shrink();
  m_sub_queues.Shrink();
  m_asleep = true;
  m_wake.WaitUnlocked(&m_queue_lock, static_cast<std::uint32_t>(wait_ms));
  m_asleep = false;
}

// Returns how much of the wait is left for messages, since the next timer may come first.
std::int32_t CFTMsgQ::CollectTimers(const FTTime& now, std::int32_t wait_ms) {
  const CFTScopedLock guard(&m_timer_lock);
  m_timers.TakeDue(now, &m_batch);
  return wait_ms > 0 ? m_timers.MsUntilDue(now, wait_ms) : wait_ms;
}
