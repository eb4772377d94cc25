#include "00shcode/ftmtsockimpl/send_thread.h"

#include <algorithm>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"

namespace {

constexpr std::int32_t kQueueLimit = 200000000;  // bytes
constexpr std::int32_t kCheckIntervalMs = 1000;
constexpr std::int32_t kQueueWaitMs = 500;
constexpr std::int32_t kWritableWaitMs = 500;
constexpr std::int32_t kWriteBytes = 262144;  // at most, in one write
constexpr std::int32_t kHeartbeatPriority = 3;

}  // namespace

CFTMtSockSendThrd::CFTMtSockSendThrd(CFTLink* link)
    : CFTEngineThread(&link->Protocol(), "CFTMtSockSendThrd"),
      m_link(link),
      m_last_send_activity(ft::GetTickTime()) {
  SetIdleWaitMs(0);  // the wait for packages paces the thread
  SetTimer(TIMER_SEND_CHECK, kCheckIntervalMs);
}

// Takes no memory: a client can be ended when there is none.
CFTMtSockSendThrd::~CFTMtSockSendThrd() {
  FTSendItem item{};
  while (TakeUnsent(&item)) Drop(item);
  for (const FTSendItem& sending : m_send_list) Drop(sending);
}

bool CFTMtSockSendThrd::TakeUnsent(FTSendItem* item) {
  const CFTScopedLock guard(&m_queue_lock);
  return m_queue.TakeOne(item);
}

void CFTMtSockSendThrd::Drop(const FTSendItem& item) {
  m_link->State().queued_send_bytes -= item.buffer->GetDataLen();
  item.Release();
}

std::int32_t CFTMtSockSendThrd::QueuePkg(CFTBuffer* pkg, FTReleaseFunction release, FTSendMode mode,
                                         std::int32_t priority) {
  return Queue(pkg->GetDataLen(), mode, [=](CFTSendQueue* queue) {
    queue->Append(priority, {pkg, release});
  });
}

std::int32_t CFTMtSockSendThrd::QueueCopy(const platform::ConstBytePiece* pieces, int count,
                                          std::int32_t length, FTSendMode mode,
                                          std::int32_t priority) {
  return Queue(length, mode,
               [=](CFTSendQueue* queue) { queue->AppendCopy(priority, pieces, count, length); });
}

template <typename Append>
std::int32_t CFTMtSockSendThrd::Queue(std::int32_t length, FTSendMode mode, Append append) {
  bool asleep = false;
  {
    const CFTScopedLock guard(&m_queue_lock);
    const bool limited = mode == FTSendMode::kWithinLimits && m_queue.WasUsed();
    if (limited && m_queued_bytes + length > kQueueLimit) return kSendTooMuch;
    append(&m_queue);
    m_queued_bytes += length;
    m_link->State().queued_send_bytes += length;
    std::swap(asleep, m_asleep);
  }
  if (asleep) m_wake.Set();
  return kSendQueued;
}

void CFTMtSockSendThrd::CloseAfterSending() {
  m_close_after_sending.store(true);
  m_wake.Set();
}

void CFTMtSockSendThrd::StopThread() {
  CFTEngineThread::StopThread();
  m_wake.Set();
  m_link->EndWaits();
}

void CFTMtSockSendThrd::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_GET_HEARTBEAT) {
    MakeHeartbeat();
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_SEND_CHECK) {
    OnSendCheck();
    SetTimerAgain(msg);
  } else {
    CFTEngineThread::OnMsg(msg, draining);
  }
}

void CFTMtSockSendThrd::OnLoop() {
  AssertOwnThread();
  if (!m_link->IsAlive()) {
    StopThread();
    return;
  }
  if (m_would_block && !WaitUntilWritable()) return;
  RefillSendList();
  WritePkgs();
  if (m_close_after_sending.load() && IsEverythingSent()) {
    CloseWhenDone(&EngineLog::ClosedAfterSending);
    return;
  }
  ReportSpace();
}

bool CFTMtSockSendThrd::IsEverythingSent() {
  const CFTScopedLock guard(&m_queue_lock);
  return m_send_list.empty() && m_queue.IsEmpty();
}

bool CFTMtSockSendThrd::WaitUntilWritable() {
  m_last_send_activity = ft::GetTickTime();
  return m_link->WaitWritable(kWritableWaitMs);
}

// Sleeps for a while when nothing is queued.
void CFTMtSockSendThrd::RefillSendList() {
  if (!m_send_list.empty() || TakeQueued()) return;
  if (m_yield.Try() && TakeQueued()) return;
  const CFTScopedLock guard(&m_queue_lock);
  if (m_queue.IsEmpty()) {
    m_would_block = false;
    // A stop that comes after this look leaves a signal behind.
    m_asleep = IsRunning() != 0;
    if (m_asleep) m_wake.WaitUnlocked(&m_queue_lock, kQueueWaitMs);
    m_asleep = false;
  }
  m_queue.TakeBatch(&m_send_list);
}

bool CFTMtSockSendThrd::TakeQueued() {
  const CFTScopedLock guard(&m_queue_lock);
  m_queue.TakeBatch(&m_send_list);
  return !m_send_list.empty();
}

void CFTMtSockSendThrd::WritePkgs() {
  while (!m_send_list.empty() && m_link->IsAlive() && WriteOnce()) {
  }
}

// False when nothing more can be written now.
bool CFTMtSockSendThrd::WriteOnce() {
  platform::ConstBytePiece pieces[platform::kMaxPieces];
  int count = 0;
  std::int32_t total = 0;
  for (const FTSendItem& item : m_send_list) {
    if (count == platform::kMaxPieces || total == kWriteBytes) break;
    const std::int32_t length = std::min(item.buffer->GetDataLen(), kWriteBytes - total);
    pieces[count++] = {item.buffer->GetData(), length};
    total += length;
  }
  m_last_send_activity = ft::GetTickTime();
  const std::int32_t sent = m_link->Send(pieces, count);
  if (sent < 0) {
    if (m_link->End(FTCloseReason::kSendFailed)) {
      EngineLog::SendFailed(&Protocol(), m_link->Info().remote_address);
    }
    StopThread();
    return false;
  }
  m_would_block = sent < total;
  if (sent > 0) AccountFor(sent);
  return !m_would_block;
}

// The counts fall first: whoever sends on from a release function finds the room that it made.
void CFTMtSockSendThrd::AccountFor(std::int32_t sent) {
  {
    const CFTScopedLock guard(&m_queue_lock);
    m_queued_bytes -= sent;
  }
  m_link->State().queued_send_bytes -= sent;
  DropSent(sent);
}

void CFTMtSockSendThrd::DropSent(std::int32_t sent) {
  while (sent > 0) {
    const FTSendItem item = m_send_list.front();
    const std::int32_t part = std::min(sent, item.buffer->GetDataLen());
    item.buffer->Consume(static_cast<std::uint32_t>(part));
    sent -= part;
    if (item.buffer->GetDataLen() > 0) return;
    m_send_list.pop_front();
    item.Release();
  }
}

void CFTMtSockSendThrd::CloseWhenDone(void (*write_line)(CMyThread* log,
                                                         const std::string& remote)) {
  if (m_link->End(FTCloseReason::kOnRequest)) {
    write_line(&Protocol(), m_link->Info().remote_address);
  }
  StopThread();
}

void CFTMtSockSendThrd::OnSendCheck() {
  if (!m_link->IsAlive()) {
    StopThread();
    return;
  }
  if (!IsEverythingSent()) return;
  if (m_close_after_sending.load()) {
    CloseWhenDone(&EngineLog::ClosedWhenIdle);
    return;
  }
  const FTTime now = ft::GetTickTime();
  if (ft::ElapsedMs(now, m_last_send_activity) < Protocol().GetHeartbeatSec() * 1000) return;
  PostMsg(FTMSG_GET_HEARTBEAT, "", 1);
  m_last_send_activity = now;
}

void CFTMtSockSendThrd::MakeHeartbeat() {
  const FTEngineState& state = m_link->State();
  const FTLinkInfo& info = m_link->Info();
  if (state.event_mode == FTEventMode::kByMessage &&
      state.heartbeat_mode == FTHeartbeatMode::kByMessage) {
    m_link->Post(FTGetHeartbeatMsg::Make(&info));
    return;
  }
  FTReleaseFunction release = nullptr;
  CFTBuffer* const pkg = Protocol().VGetHeartbeatPkg(&info, &release);
  if (pkg == nullptr) return;
  const bool sendable = pkg->GetDataLen() > 0 && m_link->IsAlive() && Protocol().IsRunning() != 0;
  if (sendable) {
    QueuePkg(pkg, release, FTSendMode::kForced, kHeartbeatPriority);
  } else if (release != nullptr) {
    release(pkg);
  }
}

void CFTMtSockSendThrd::ReportSpace() {
  const FTEngineState& state = m_link->State();
  if (state.space_reports == FTSpaceReports::kNone || !m_link->IsAnnounced()) return;
  std::int64_t queued = 0;
  {
    const CFTScopedLock guard(&m_queue_lock);
    queued = m_queued_bytes;
  }
  if (queued >= std::int64_t{4} * kQueueLimit / 5 || !m_link->IsAlive()) return;
  const auto free_bytes = static_cast<std::int32_t>(kQueueLimit - queued);
  if (state.event_mode == FTEventMode::kDirect) {
    Protocol().OnSendSpace(&m_link->Info(), free_bytes, kQueueLimit);
  } else {
    m_link->Post(FTSendSpaceMsg::Make(&m_link->Info(), free_bytes, kQueueLimit));
  }
}
