#include "00shcode/ftmtsockimpl/send_thread.h"

#include <algorithm>
#include <cassert>

#include "00shcode/ftmtsockimpl/engine.h"
#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"
#include "sockif/sock_if_contract.h"

namespace {

constexpr std::int32_t kQueueLimit = 200000000;
constexpr std::int32_t kCheckIntervalMs = 1000;
constexpr std::int32_t kIdleWaitMs = 500;
constexpr std::int32_t kQueueWaitMs = 500;
constexpr std::int32_t kWritableWaitMs = 500;
constexpr std::int32_t kPieceBytes = 10240;
constexpr std::int32_t kHeartbeatPriority = 3;

}  // namespace

CFTMtSockSendThrd::CFTMtSockSendThrd(CFTMtSockOneLinkThrd* owner, CFTMtSockImpl* engine)
    : m_owner(owner),
      m_engine(engine),
      m_interface(engine->GetOwner()),
      m_queue_limit(kQueueLimit),
      m_last_send_activity(GetTickTime()) {
  SetThreadName("CFTMtSockSendThrd");
  SetIdleWaitMs(0);  // the wait for packages paces the thread
  SetTimer(TIMER_SEND_CHECK, kCheckIntervalMs);
}

CFTMtSockSendThrd::~CFTMtSockSendThrd() {
  std::deque<FTSendItem> unsent;
  {
    const CFTScopedLock guard(&m_queue_lock);
    while (!m_queue.IsEmpty()) m_queue.TakeBatch(&unsent);
    unsent.insert(unsent.end(), m_send_list.begin(), m_send_list.end());
    m_send_list.clear();
  }
  ReleaseUnsent(unsent);
}

std::int32_t CFTMtSockSendThrd::QueuePkg(CFTBuffer* pkg, FTReleaseFunction release,
                                         std::int32_t force, std::int32_t priority) {
  const std::int32_t length = pkg->GetDataLen();
  const CFTScopedLock guard(&m_queue_lock);
  const bool was_empty = IsQueueEmpty();
  if (was_empty) m_queued_bytes = 0;
  if (force == 0 && m_queue.WasUsed() && m_queued_bytes + length > m_queue_limit.Get()) return 1;
  m_queue.Append(priority, {pkg, release, GetTickTime()});
  m_item_count.Increment();
  m_queued_bytes += length;
  m_engine->State().queued_send_bytes.Add(length);
  if (was_empty) m_wake.Set();
  return 0;
}

void CFTMtSockSendThrd::VWriteLog(const char* path, int line, std::int32_t level_code,
                                  const char* format, va_list arguments) {
  m_interface->VWriteLog(path, line, level_code, format, arguments);
}

void CFTMtSockSendThrd::OnMsg(const FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_GET_HEARTBEAT) {
    MakeHeartbeat();
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_SEND_CHECK) {
    OnSendCheck();
    SetTimerAgain(msg);
  } else {
    CFTMsgQ::OnMsg(msg, draining);
  }
}

void CFTMtSockSendThrd::OnLoop() {
  assert(IsOwnThread());
  if (!m_owner->IsAlive()) {
    StopIdle();
    return;
  }
  SetIdleWaitMs(0);
  if (m_would_block && !WaitUntilWritable()) return;
  RefillSendList();
  WritePkgs();
  if (m_close_after_sending.Get() == 1 && IsEverythingSent()) {
    if (m_owner->EndLink(kCloseOnRequest)) {
      EngineLog::ClosedAfterSending(m_interface, m_owner->GetRemoteAddress());
    }
    StopIdle();
    return;
  }
  ReportSpace();
}

bool CFTMtSockSendThrd::IsQueueEmpty() const {
  return m_send_list.empty() && m_queue.IsEmpty();
}

bool CFTMtSockSendThrd::IsEverythingSent() {
  const CFTScopedLock guard(&m_queue_lock);
  return IsQueueEmpty();
}

bool CFTMtSockSendThrd::WaitUntilWritable() {
  m_last_send_activity = GetTickTime();
  return m_owner->WaitWritable(kWritableWaitMs) != 0;
}

void CFTMtSockSendThrd::RefillSendList() {
  const CFTScopedLock guard(&m_queue_lock);
  if (!m_send_list.empty()) return;
  if (m_queue.IsEmpty()) {
    m_queued_bytes = 0;
    m_would_block = false;
    m_wake.WaitUnlocked(&m_queue_lock, kQueueWaitMs);
  }
  m_queue.TakeBatch(&m_send_list);
}

void CFTMtSockSendThrd::WritePkgs() {
  FTSendItem* item = GetFirstItem();
  while (item != nullptr && m_owner->IsAlive() && WritePiece(item)) item = GetFirstItem();
}

// False when nothing more can be written now.
bool CFTMtSockSendThrd::WritePiece(FTSendItem* item) {
  m_last_send_activity = GetTickTime();
  const std::int32_t chunk = std::min(item->buffer->GetDataLen(), kPieceBytes);
  const std::int32_t sent = m_owner->SendOnSocket(item->buffer->GetData(), chunk);
  if (sent < 0) {
    if (m_owner->EndLink(kCloseSendFailed)) {
      EngineLog::SendFailed(m_interface, m_owner->GetRemoteAddress());
    }
    StopThread();
    return false;
  }
  m_would_block = sent < chunk;
  if (sent > 0) FinishPiece(item, sent);
  return !m_would_block;
}

void CFTMtSockSendThrd::FinishPiece(FTSendItem* item, std::int32_t sent) {
  m_engine->State().queued_send_bytes.Add(-sent);
  item->buffer->Consume(static_cast<std::uint32_t>(sent));
  const bool complete = item->buffer->GetDataLen() == 0;
  if (complete) {
    m_item_count.Add(-1);
    ReleaseSendItem(*item);
  }
  const CFTScopedLock guard(&m_queue_lock);
  m_queued_bytes -= sent;
  if (complete) m_send_list.pop_front();
}

FTSendItem* CFTMtSockSendThrd::GetFirstItem() {
  const CFTScopedLock guard(&m_queue_lock);
  return m_send_list.empty() ? nullptr : &m_send_list.front();
}

void CFTMtSockSendThrd::OnSendCheck() {
  if (!m_owner->IsAlive()) {
    StopThread();
    return;
  }
  if (!IsEverythingSent()) return;
  if (m_close_after_sending.Get() == 1) {
    if (m_owner->EndLink(kCloseOnRequest)) {
      EngineLog::ClosedWhenIdle(m_interface, m_owner->GetRemoteAddress());
    }
    StopIdle();
    return;
  }
  const FTTime now = GetTickTime();
  if (DiffMs(now, m_last_send_activity) < m_interface->GetHeartbeatSec() * 1000) return;
  PostMsg(FTMSG_GET_HEARTBEAT, "", 1);
  m_last_send_activity = now;
}

void CFTMtSockSendThrd::MakeHeartbeat() {
  auto link = m_owner->CopyLink();
  const FTEngineState& state = m_engine->State();
  if (state.event_mode == 1 && state.heartbeat_by_message != 0) {
    m_interface->PostMsg(FTMSG_GET_HEARTBEAT, m_owner->GetLinkId(), m_owner->GetPriority(),
                         ToParam(std::move(link)));
    return;
  }
  FTReleaseFunction release = nullptr;
  CFTBuffer* const pkg = m_interface->VGetHeartbeatPkg(link.get(), &release);
  if (pkg == nullptr) return;
  m_engine->SendPkg(link->link_id, pkg, release, 1, 1, kHeartbeatPriority);
}

void CFTMtSockSendThrd::ReportSpace() {
  const std::int32_t limit = m_queue_limit.Get();
  std::int64_t queued;
  {
    const CFTScopedLock guard(&m_queue_lock);
    queued = m_queued_bytes;
  }
  if (queued >= std::int64_t{4} * limit / 5 || !m_owner->IsAlive()) return;
  const auto free_bytes = static_cast<std::int32_t>(limit - queued);
  auto link = m_owner->CopyLink();
  if (m_engine->State().event_mode == 0) {
    m_interface->OnSendSpace(link.get(), free_bytes, limit);
    return;
  }
  m_interface->PostMsg(FTMSG_SEND_SPACE, m_owner->GetLinkId(), m_owner->GetPriority(),
                       ToParam(std::move(link)), static_cast<std::uintptr_t>(free_bytes),
                       static_cast<std::uintptr_t>(limit));
}

void CFTMtSockSendThrd::StopIdle() {
  SetIdleWaitMs(kIdleWaitMs);
  StopThread();
}

void CFTMtSockSendThrd::ReleaseUnsent(const std::deque<FTSendItem>& items) {
  for (const FTSendItem& item : items) {
    m_engine->State().queued_send_bytes.Add(-item.buffer->GetDataLen());
    ReleaseSendItem(item);
  }
}
