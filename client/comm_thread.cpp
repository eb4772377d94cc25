#include "client/comm_thread.h"

#include <algorithm>
#include <new>
#include <utility>

#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/clock.h"
#include "client/clientdatasource.h"
#include "client/package.h"

namespace {

constexpr std::uint32_t TIMER_CHECK_LINK = 2003;
constexpr std::uint32_t TIMER_CHECK_REPLY = 2004;
constexpr std::int32_t kCheckIntervalMs = 2000;
constexpr std::int32_t kReplyLimitSec = 8;
constexpr std::int32_t kRequestPriority = 3;
constexpr std::int32_t kIdleWaitMs = 500;
constexpr std::int32_t kLongestRetryMs = 20;
constexpr std::int64_t kMostReceivedBytes = std::int64_t{64} << 20;

constexpr auto kRelaxed = std::memory_order_relaxed;

std::int32_t WallClockSeconds() {
  return static_cast<std::int32_t>(platform::WallClockSeconds());
}

// Wraps like the seconds themselves do.
std::int32_t SecondsBetween(std::int32_t later, std::int32_t earlier) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(later) -
                                   static_cast<std::uint32_t>(earlier));
}

}  // namespace

CClientCommThread::CClientCommThread()
    : CFTBaseSockIf(FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread,
                    FTSpaceReports::kNone) {
  SetIdleWaitMs(kIdleWaitMs);
}

CClientCommThread::~CClientCommThread() = default;

void CClientCommThread::SetServers(std::vector<ServerEntry> servers) {
  const CFTAutoLock guard(&m_server_lock, CFTRwLock::kWrite);
  m_servers.Assign(std::move(servers));
}

std::int32_t CClientCommThread::SetRecvWnd(std::uint32_t window, std::uint32_t message) {
  m_window.store(window, kRelaxed);
  m_message.store(message, kRelaxed);
  WakeUp();  // for what is kept
  return 0;
}

std::int32_t CClientCommThread::IsOnline() {
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  return IsLinkUp(m_link_id);
}

std::int32_t CClientCommThread::SendRequest(const char* body, std::int32_t body_len) {
  if (body_len < 0 || body_len > ft::kMaxBodyLen) return -1;
  unsigned char head[ft::kPkgHeadLen];
  const platform::ConstBytePiece pieces[] = {{head, ft::kPkgHeadLen}, {body, body_len}};
  const int piece_count = ft::EncodeHead(head, body, body_len) == 0 ? 2 : 0;
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  if (m_link_id.empty() || GetQueuedSendBytes() > kMostQueuedBytes) return -1;
  // Before the package is on its way: its answer ends the wait.
  std::int32_t now = WallClockSeconds();
  const std::int32_t before = m_reply_wait_start.exchange(now, kRelaxed);
  try {
    SendCopy(m_link_id, pieces, piece_count, FTSendMode::kForced, kRequestPriority);
  } catch (const std::bad_alloc&) {
    m_reply_wait_start.compare_exchange_strong(now, before, kRelaxed);  // unless one was answered
    throw;
  }
  return 0;
}

std::int32_t CClientCommThread::OnEnterThread() {
  CFTBaseSockIf::OnEnterThread();
  ConnectNextServer();
  SetTimer(TIMER_CHECK_REPLY, kCheckIntervalMs);
  SetTimer(TIMER_CHECK_LINK, kCheckIntervalMs);
  return 0;
}

void CClientCommThread::OnIdle() {
  m_idle_cycle = true;
}

// What is kept is looked at after every cycle, and after ever longer waits while nothing happens.
void CClientCommThread::OnLoop() {
  const bool flushed = FlushNotifications();
  const bool nothing_happened = std::exchange(m_idle_cycle, false) && !flushed;
  m_retry_ms = nothing_happened ? std::clamp(2 * m_retry_ms, 1, kLongestRetryMs) : 0;
  SetIdleWaitMs(m_kept_bytes > 0 ? std::max(m_retry_ms, 1) : kIdleWaitMs);
}

void CClientCommThread::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_CHECK_LINK) {
    OnCheckLinkTimer();
    SetTimerAgain(msg);
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_CHECK_REPLY) {
    OnCheckReplyTimer();
    SetTimerAgain(msg);
  } else {
    CFTBaseSockIf::OnMsg(msg, draining);
  }
}

std::int32_t CClientCommThread::VGetOnePkgLen(const void* data, std::int32_t count,
                                              const FTLinkInfo*) {
  return ft::GetPkgLen(data, count);
}

CFTBuffer* CClientCommThread::VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction* release) {
  *release = &ReleaseFTBuffer;
  return ft::MakeHeartbeatPkg().release();
}

void CClientCommThread::OnConnected(const FTLinkInfo* link) {
  if (IsCurrentLink(*link)) PostLinkEvent(LINK_EVENT_UP);
}

void CClientCommThread::OnConnectFailed(const FTLinkInfo* link) {
  ForgetLink(*link, LINK_EVENT_CONNECT_FAILED);
}

void CClientCommThread::OnLinkClosed(const FTLinkInfo* link, FTCloseReason) {
  ForgetLink(*link, LINK_EVENT_CLOSED);
}

void CClientCommThread::OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) {
  if (!IsCurrentLink(*link)) return;
  PkgHead head;
  std::int32_t body_len = 0;
  if (ft::VerifyPkg(pkg, &head, &body_len) != 0) return;
  const auto* const body = reinterpret_cast<const char*>(pkg->GetData()) + ft::kPkgHeadLen;
  if (ft::IsHeartbeatBody(body, body_len)) return;
  m_reply_wait_start.store(0, kRelaxed);
  *keep = 1;
  m_notifications.AddBody(ft::FTBodyPtr(CFTBuffer::IntoBody(FTBufferPtr(pkg), ft::kPkgHeadLen)),
                          body_len);
  if (m_notifications.IsBatchFull()) FlushNotifications();
}

void CClientCommThread::PostLinkEvent(std::intptr_t link_event) {
  m_notifications.AddLinkEvent(link_event);
  FlushNotifications();
}

// True when anything could be posted or queued.
bool CClientCommThread::FlushNotifications() {
  const std::uint32_t window = m_window.load(kRelaxed);
  const std::uint32_t message = m_message.load(kRelaxed);
  const bool has_window = window != 0 && message != 0;
  bool flushed = false;
  if (!m_notifications.IsEmpty()) {
    flushed = !has_window || m_notifications.PostTo(window, message);
    if (!has_window) m_notifications.MoveTo(&m_received);
  }
  CountKept(has_window);
  return flushed;
}

// Packages that arrived without a window do not count once there is one: nobody would take them,
// and the link could never be read again.
void CClientCommThread::CountKept(bool has_window) {
  std::int64_t kept = m_notifications.GetBytes();
  if (!has_window) kept += std::max(m_received.GetBytes() - kMostReceivedBytes, std::int64_t{0});
  if (kept != m_kept_bytes) CountUndelivered(kept - std::exchange(m_kept_bytes, kept));
}

void CClientCommThread::ConnectNextServer() {
  const CFTAutoLock server_guard(&m_server_lock, CFTRwLock::kWrite);
  const ServerEntry* const server = m_servers.TakeNext();
  if (server == nullptr) return;
  std::string link_id = Connect(server->host.c_str(), static_cast<std::uint16_t>(server->port));
  const CFTAutoLock link_guard(&m_link_lock, CFTRwLock::kWrite);
  m_link_id = link_id;
  m_own_link_id = std::move(link_id);
}

void CClientCommThread::OnCheckLinkTimer() {
  if (GetLinkId().empty()) ConnectNextServer();
}

void CClientCommThread::OnCheckReplyTimer() {
  const std::string link_id = GetLinkId();
  if (link_id.empty()) return;
  const std::int32_t start = m_reply_wait_start.load(kRelaxed);
  if (start > 0 && m_kept_bytes > 0) {
    // The answer may be there, behind what the application has not taken yet.
    m_reply_wait_start.store(WallClockSeconds(), kRelaxed);
    return;
  }
  if (start <= 0 || SecondsBetween(WallClockSeconds(), start) <= kReplyLimitSec) return;
  CloseLink(link_id, FTCloseMode::kNow);
  m_reply_wait_start.store(0, kRelaxed);
}

bool CClientCommThread::IsCurrentLink(const FTLinkInfo& link) const {
  AssertOwnThread();
  return link.link_id == m_own_link_id;
}

void CClientCommThread::ForgetLink(const FTLinkInfo& link, std::intptr_t link_event) {
  if (!IsCurrentLink(link)) return;
  FlushNotifications();  // who sees that the link is gone finds everything that it brought
  {
    const CFTAutoLock guard(&m_link_lock, CFTRwLock::kWrite);
    m_link_id.clear();
  }
  m_own_link_id.clear();
  PostLinkEvent(link_event);
}

std::string CClientCommThread::GetLinkId() {
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  return m_link_id;
}
