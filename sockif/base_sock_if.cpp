#include "sockif/base_sock_if.h"

#include <utility>

#include "00shcode/ftmtsockimpl/engine.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/mytoolkit/text.h"

namespace {

constexpr std::int32_t kHeartbeatPriority = 3;

std::string TextOf(const char* text) {
  return text == nullptr ? std::string() : text;
}

}  // namespace

CFTBaseSockIf::CFTBaseSockIf(std::int32_t event_mode, std::int32_t heartbeat_by_message)
    : m_engine((FTSockStartup(),
                std::make_unique<CFTMtSockImpl>(this, event_mode, heartbeat_by_message))) {
  SetThreadName("CFTBaseSockIf");
}

CFTBaseSockIf::~CFTBaseSockIf() {
  ReleaseQueuedMsgs();
}

std::string CFTBaseSockIf::Connect(const char* remote_address, std::uint16_t remote_port,
                                   std::uint32_t user_value1, std::uint32_t user_value2,
                                   const char* local_address, std::uint16_t local_port,
                                   std::int32_t delay_sec) {
  if (IsRunning() == 0) return {};
  auto link = std::make_unique<FTLinkInfo>();
  const std::string link_id = VNewLinkId();
  link->link_id = link_id;
  link->kind = LINK_KIND_OUT;
  link->remote_address = TextOf(remote_address);
  link->remote_port = remote_port;
  link->local_address = TextOf(local_address);
  link->local_port = local_port;
  link->user_value1 = user_value1;
  link->user_value2 = user_value2;
  m_engine->BeginConnectLater(std::move(link), delay_sec);
  return link_id;
}

std::string CFTBaseSockIf::Listen(const char* local_address, std::uint16_t port,
                                  std::uint32_t user_value1, std::uint32_t user_value2,
                                  std::uint16_t* bound_port) {
  if (IsRunning() == 0) return {};
  const FTSocket socket = FTSockListen(local_address, port);
  if (socket == kNoSocket) return {};
  auto listener = std::make_unique<FTLinkInfo>();
  const std::string link_id = VNewLinkId();
  listener->link_id = link_id;
  listener->socket = socket;
  listener->kind = LINK_KIND_IN;
  listener->user_value1 = user_value1;
  listener->user_value2 = user_value2;
  FTSockGetAddrs(socket, &listener->local_address, &listener->local_port, nullptr, nullptr);
  if (bound_port != nullptr) *bound_port = listener->local_port;
  m_engine->AddListener(std::move(listener));
  return link_id;
}

std::int32_t CFTBaseSockIf::SendPkg(const std::string& link_id, CFTBuffer* pkg,
                                    FTReleaseFunction release, std::int32_t force,
                                    std::int32_t release_on_failure, std::int32_t priority) {
  return m_engine->SendPkg(link_id, pkg, release, force, release_on_failure, priority);
}

void CFTBaseSockIf::CloseLink(const std::string& link_id, std::int32_t after_sending) {
  if (IsRunning() != 0) m_engine->CloseLink(link_id, after_sending);
}

std::int32_t CFTBaseSockIf::IsLinkUp(const std::string& link_id) const {
  return m_engine->IsLinkUp(link_id);
}

std::string CFTBaseSockIf::VNewLinkId() {
  const std::uint32_t number = m_link_counter.Increment();
  const unsigned char bytes[4] = {
      static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8),
      static_cast<unsigned char>(number >> 16), static_cast<unsigned char>(number >> 24)};
  return BytesToHex(bytes, sizeof bytes, 0);
}

std::int32_t CFTBaseSockIf::OnEnterThread() {
  CFTSockIfContract::OnEnterThread();
  m_engine->StartThread(0);
  return 0;
}

void CFTBaseSockIf::OnExitThread() {
  m_engine->StopThread();
  m_engine->WaitThreadExit();
  CFTSockIfContract::OnExitThread();
}

void CFTBaseSockIf::OnMsg(const FTMsg& msg, std::int32_t draining) {
  switch (msg.id) {
    case FTMSG_GET_HEARTBEAT:
      return SendHeartbeat(*FromParam<FTLinkInfo>(msg.p1));
    case FTMSG_LINK_CLOSED:
      return OnLinkClosed(FromParam<FTLinkInfo>(msg.p1).get(), static_cast<std::int32_t>(msg.p2));
    case FTMSG_RECV_PKG:
      return HandlePkg(*FromParam<FTLinkInfo>(msg.p1), FromParam<CFTBuffer>(msg.p2));
    case FTMSG_CONNECT_FAILED:
      return OnConnectFailed(FromParam<FTLinkInfo>(msg.p1).get());
    case FTMSG_LINK_UP:
      return HandleLinkUp(*FromParam<FTLinkInfo>(msg.p1), *FromParam<FTLinkInfo>(msg.p2));
    case FTMSG_SETUP_FAILED: {
      const auto req = FromParam<FTLinkReq>(msg.p1);
      return OnSetupFailed(req.get(), &req->listener);
    }
    case FTMSG_SEND_SPACE:
      return OnSendSpace(FromParam<FTLinkInfo>(msg.p1).get(), static_cast<std::int32_t>(msg.p2),
                         static_cast<std::int32_t>(msg.p3));
    default:
      return CFTSockIfContract::OnMsg(msg, draining);
  }
}

void CFTBaseSockIf::SendHeartbeat(const FTLinkInfo& link) {
  FTReleaseFunction release = nullptr;
  CFTBuffer* const pkg = VGetHeartbeatPkg(&link, &release);
  if (pkg != nullptr) SendPkg(link.link_id, pkg, release, 1, 1, kHeartbeatPriority);
}

void CFTBaseSockIf::HandlePkg(const FTLinkInfo& link, FTBufferPtr pkg) {
  const std::int32_t length = pkg == nullptr ? 0 : pkg->GetDataLen();
  std::int32_t keep = 0;
  OnRecvPkg(&link, pkg.get(), &keep);
  if (keep != 0) pkg.release();
  pkg.reset();
  m_engine->State().undelivered_recv_bytes.Add(-length);
}

void CFTBaseSockIf::HandleLinkUp(const FTLinkInfo& link, const FTLinkInfo& listener) {
  if (link.kind == LINK_KIND_OUT) {
    OnConnected(&link);
  } else {
    OnAccepted(&link, &listener);
  }
}

// All threads that post to this object have been joined with the engine.
void CFTBaseSockIf::ReleaseQueuedMsgs() {
  for (const FTMsg& msg : TakeQueuedMsgs()) {
    switch (msg.id) {
      case FTMSG_RECV_PKG:
        FromParam<CFTBuffer>(msg.p2);
        FromParam<FTLinkInfo>(msg.p1);
        break;
      case FTMSG_LINK_UP:
        FromParam<FTLinkInfo>(msg.p2);
        FromParam<FTLinkInfo>(msg.p1);
        break;
      case FTMSG_GET_HEARTBEAT:
      case FTMSG_LINK_CLOSED:
      case FTMSG_CONNECT_FAILED:
      case FTMSG_SEND_SPACE:
        FromParam<FTLinkInfo>(msg.p1);
        break;
      default:
        break;
    }
  }
}

CFTBuffer* CFTBaseSockIf::VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction*) {
  return nullptr;
}

void CFTBaseSockIf::OnLinkClosed(const FTLinkInfo*, std::int32_t) {}

void CFTBaseSockIf::OnRecvPkg(const FTLinkInfo*, CFTBuffer*, std::int32_t*) {}

void CFTBaseSockIf::OnConnectFailed(const FTLinkInfo*) {}

void CFTBaseSockIf::OnConnected(const FTLinkInfo*) {}

void CFTBaseSockIf::OnAccepted(const FTLinkInfo*, const FTLinkInfo*) {}

void CFTBaseSockIf::OnSetupFailed(const FTLinkReq*, const FTLinkInfo*) {}

void CFTBaseSockIf::OnSendSpace(const FTLinkInfo*, std::int32_t, std::int32_t) {}

void CFTBaseSockIf::VPrepareLink(FTLinkReq*, std::uintptr_t, std::uintptr_t) {}
