#include "client/comm_thread.h"

#include <memory>
#include <utility>

#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/clock.h"
#include "client/clientdatasource.h"
#include "client/package.h"
#include "platform/platform.h"

namespace {

constexpr std::uint32_t TIMER_CHECK_LINK = 2003;
constexpr std::uint32_t TIMER_CHECK_REPLY = 2004;
constexpr std::int32_t kCheckIntervalMs = 2000;
constexpr std::int32_t kReplyLimitSec = 8;
constexpr std::int32_t kRequestPriority = 3;

constexpr auto kRelaxed = std::memory_order_relaxed;

std::int32_t WallClockSeconds() {
  return static_cast<std::int32_t>(ft::GetNowTime().seconds);
}

// Wraps like the seconds themselves do.
std::int32_t SecondsBetween(std::int32_t later, std::int32_t earlier) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(later) -
                                   static_cast<std::uint32_t>(earlier));
}

void DiscardBody(std::uintptr_t body) {
  delete[] reinterpret_cast<char*>(body);
}

}  // namespace

CClientCommThread::CClientCommThread()
    : CFTBaseSockIf(FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread,
                    FTSpaceReports::kNone) {}

CClientCommThread::~CClientCommThread() = default;

void CClientCommThread::SetServers(std::vector<ServerEntry> servers) {
  const CFTAutoLock guard(&m_server_lock, CFTRwLock::kWrite);
  m_servers.Assign(std::move(servers));
}

std::int32_t CClientCommThread::SetRecvWnd(std::uint32_t window, std::uint32_t message) {
  m_window.store(window, kRelaxed);
  m_message.store(message, kRelaxed);
  return 0;
}

std::int32_t CClientCommThread::IsOnline() {
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  return IsLinkUp(m_link_id);
}

std::int32_t CClientCommThread::SendRequest(const char* body, std::int32_t body_len) {
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  if (m_link_id.empty()) return -1;
  if (body_len < 0 || body_len > ft::kMaxBodyLen) return -1;
  auto package = std::make_unique<CFTBuffer>();
  ft::EncodePkg(package.get(), body, body_len);
  SendPkg(m_link_id, package.release(), &ReleaseFTBuffer, FTSendMode::kForced,
          FTOnRefusal::kRelease, kRequestPriority);
  m_reply_wait_start.store(WallClockSeconds(), kRelaxed);
  return 0;
}

std::int32_t CClientCommThread::OnEnterThread() {
  CFTBaseSockIf::OnEnterThread();
  ConnectNextServer();
  SetTimer(TIMER_CHECK_REPLY, kCheckIntervalMs);
  SetTimer(TIMER_CHECK_LINK, kCheckIntervalMs);
  return 0;
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

void CClientCommThread::OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t*) {
  if (!IsCurrentLink(*link)) return;
  PkgHead head;
  char* body = nullptr;
  std::int32_t body_len = 0;
  if (ft::DecodePkg(pkg, &head, &body, &body_len) != 0) return;
  if (ft::IsHeartbeatBody(body, body_len)) {
    delete[] body;
    return;
  }
  m_reply_wait_start.store(0, kRelaxed);
  DeliverBody(body, body_len);
}

void CClientCommThread::DeliverBody(char* body, std::int32_t body_len) {
  std::unique_ptr<char[]> owned(body);
  const std::uint32_t window = m_window.load(kRelaxed);
  const std::uint32_t message = m_message.load(kRelaxed);
  if (window == 0 || message == 0) {
    m_received.Push(body, body_len);
    return;
  }
  const auto w_param = reinterpret_cast<std::uintptr_t>(body);
  if (platform::PostToWindow(window, message, w_param, body_len, &DiscardBody)) owned.release();
}

void CClientCommThread::PostLinkEvent(std::intptr_t link_event) {
  const std::uint32_t window = m_window.load(kRelaxed);
  const std::uint32_t message = m_message.load(kRelaxed);
  if (window != 0 && message != 0) platform::PostToWindow(window, message, 0, link_event, nullptr);
}

void CClientCommThread::ConnectNextServer() {
  const CFTAutoLock server_guard(&m_server_lock, CFTRwLock::kWrite);
  const ServerEntry* const server = m_servers.TakeNext();
  if (server == nullptr) return;
  std::string link_id = Connect(server->host.c_str(), static_cast<std::uint16_t>(server->port));
  const CFTAutoLock link_guard(&m_link_lock, CFTRwLock::kWrite);
  m_link_id = std::move(link_id);
}

void CClientCommThread::OnCheckLinkTimer() {
  if (GetLinkId().empty()) ConnectNextServer();
}

void CClientCommThread::OnCheckReplyTimer() {
  const std::string link_id = GetLinkId();
  if (link_id.empty()) return;
  const std::int32_t start = m_reply_wait_start.load(kRelaxed);
  if (start <= 0 || SecondsBetween(WallClockSeconds(), start) <= kReplyLimitSec) return;
  CloseLink(link_id, FTCloseMode::kNow);
  m_reply_wait_start.store(0, kRelaxed);
}

bool CClientCommThread::IsCurrentLink(const FTLinkInfo& link) {
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  return link.link_id == m_link_id;
}

void CClientCommThread::ForgetLink(const FTLinkInfo& link, std::intptr_t link_event) {
  {
    const CFTAutoLock guard(&m_link_lock, CFTRwLock::kWrite);
    if (link.link_id != m_link_id) return;
    m_link_id.clear();
  }
  PostLinkEvent(link_event);
}

std::string CClientCommThread::GetLinkId() {
  const CFTAutoLock guard(&m_link_lock, CFTRwLock::kRead);
  return m_link_id;
}
