#include "sockif/base_sock_if.h"

#include <tuple>
#include <utility>

#include "00shcode/ftmtsockimpl/engine.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/mytoolkit/text.h"

namespace {

constexpr std::int32_t kHeartbeatPriority = 3;
constexpr std::int64_t kCountedAtOnce = 65536;  // bytes

std::string TextOf(const char* text) {
  return text == nullptr ? std::string() : text;
}

}  // namespace

CFTBaseSockIf::CFTBaseSockIf(FTEventMode event_mode, FTHeartbeatMode heartbeat_mode,
                             FTSpaceReports space_reports)
    : m_engine((FTSockStartup(),
                std::make_unique<CFTMtSockImpl>(this, event_mode, heartbeat_mode, space_reports))) {
  SetThreadName("CFTBaseSockIf");
}

CFTBaseSockIf::~CFTBaseSockIf() = default;

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
  m_engine->Connect(std::move(link), delay_sec);
  return link_id;
}

std::string CFTBaseSockIf::Listen(const char* local_address, std::uint16_t port,
                                  std::uint32_t user_value1, std::uint32_t user_value2,
                                  std::uint16_t* bound_port) {
  if (IsRunning() == 0) return {};
  const FTSocket socket = FTSockListen(local_address, port);
  if (socket == kNoSocket) return {};
  FTListenerPtr listener(new FTLinkInfo);
  listener->socket = socket;
  const std::string link_id = VNewLinkId();
  listener->link_id = link_id;
  listener->kind = LINK_KIND_IN;
  listener->user_value1 = user_value1;
  listener->user_value2 = user_value2;
  FTSockGetAddrs(socket, &listener->local_address, &listener->local_port, nullptr, nullptr);
  if (bound_port != nullptr) *bound_port = listener->local_port;
  m_engine->AddListener(std::move(listener));
  return link_id;
}

std::int32_t CFTBaseSockIf::SendPkg(const std::string& link_id, CFTBuffer* pkg,
                                    FTReleaseFunction release, FTSendMode mode,
                                    FTOnRefusal on_refusal, std::int32_t priority) {
  return m_engine->SendPkg(link_id, pkg, release, mode, on_refusal, priority);
}

std::int32_t CFTBaseSockIf::SendCopy(const std::string& link_id,
                                     const platform::ConstBytePiece* pieces, int count,
                                     FTSendMode mode, std::int32_t priority) {
  return m_engine->SendCopy(link_id, pieces, count, mode, priority);
}

std::int64_t CFTBaseSockIf::GetQueuedSendBytes() const {
  return m_engine->State().queued_send_bytes.load(std::memory_order_relaxed);
}

void CFTBaseSockIf::CloseLink(const std::string& link_id, FTCloseMode mode) {
  if (IsRunning() != 0) m_engine->CloseLink(link_id, mode);
}

std::int32_t CFTBaseSockIf::IsLinkUp(const std::string& link_id) const {
  return m_engine->IsLinkUp(link_id);
}

std::string CFTBaseSockIf::VNewLinkId() {
  const std::uint32_t number = m_link_counter.Increment();
  const unsigned char bytes[4] = {
      static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8),
      static_cast<unsigned char>(number >> 16), static_cast<unsigned char>(number >> 24)};
  return ft::BytesToHex(bytes, sizeof bytes, 0);
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

std::int32_t CFTBaseSockIf::RunOnce() {
  ++m_cycles;
  CFTSockIfContract::RunOnce();
  CountDelivered();
  if (--m_cycles == 0) m_ended.clear();
  return 0;
}

void CFTBaseSockIf::OnMsg(FTMsg& msg, std::int32_t draining) {
  switch (msg.id) {
    case FTMSG_GET_HEARTBEAT:
      return SendHeartbeat(*std::get<0>(FTGetHeartbeatMsg::Take(msg)));
    case FTMSG_LINK_CLOSED: {
      auto [link, reason, record] = FTLinkClosedMsg::Take(msg);
      m_ended.push_back(std::move(record));
      return OnLinkClosed(link.get(), reason);
    }
    case FTMSG_RECV_PKG: {
      auto [link, pkg] = FTRecvPkgMsg::Take(msg);
      return HandlePkg(*link, std::move(pkg));
    }
    case FTMSG_CONNECT_FAILED:
      return OnConnectFailed(std::get<0>(FTConnectFailedMsg::Take(msg)).get());
    case FTMSG_LINK_UP: {
      const auto [link, listener] = FTLinkUpMsg::Take(msg);
      return HandleLinkUp(*link, *listener);
    }
    case FTMSG_SETUP_FAILED: {
      const auto [req] = FTSetupFailedMsg::Take(msg);
      return OnSetupFailed(req.get(), &req->listener);
    }
    case FTMSG_SEND_SPACE: {
      const auto [link, free_bytes, limit] = FTSendSpaceMsg::Take(msg);
      return OnSendSpace(link, free_bytes, limit);
    }
    default:
      return CFTSockIfContract::OnMsg(msg, draining);
  }
}

void CFTBaseSockIf::SendHeartbeat(const FTLinkInfo& link) {
  FTReleaseFunction release = nullptr;
  CFTBuffer* const pkg = VGetHeartbeatPkg(&link, &release);
  if (pkg == nullptr) return;
  SendPkg(link.link_id, pkg, release, FTSendMode::kForced, FTOnRefusal::kRelease,
          kHeartbeatPriority);
}

void CFTBaseSockIf::HandlePkg(const FTLinkInfo& link, FTBufferPtr pkg) {
  AssertOwnThread();
  const std::int64_t occupied = pkg->GetDataLen() + FTEngineState::kPkgCost;
  std::int32_t keep = 0;
  OnRecvPkg(&link, pkg.get(), &keep);
  if (keep != 0) pkg.release();
  m_delivered += occupied;
  if (m_delivered >= kCountedAtOnce) CountDelivered();
}

// Once for many packages: the links' threads change the same count.
void CFTBaseSockIf::CountDelivered() {
  if (m_delivered != 0) CountUndelivered(-std::exchange(m_delivered, 0));
}

void CFTBaseSockIf::CountUndelivered(std::int64_t bytes) {
  m_engine->State().recv_backlog.Add(bytes);
}

void CFTBaseSockIf::HandleLinkUp(const FTLinkInfo& link, const FTLinkInfo& listener) {
  if (link.kind == LINK_KIND_OUT) {
    OnConnected(&link);
  } else {
    OnAccepted(&link, &listener);
  }
}

CFTBuffer* CFTBaseSockIf::VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction*) {
  return nullptr;
}

void CFTBaseSockIf::OnLinkClosed(const FTLinkInfo*, FTCloseReason) {}

void CFTBaseSockIf::OnRecvPkg(const FTLinkInfo*, CFTBuffer*, std::int32_t*) {}

void CFTBaseSockIf::OnConnectFailed(const FTLinkInfo*) {}

void CFTBaseSockIf::OnConnected(const FTLinkInfo*) {}

void CFTBaseSockIf::OnAccepted(const FTLinkInfo*, const FTLinkInfo*) {}

void CFTBaseSockIf::OnSetupFailed(const FTLinkReq*, const FTLinkInfo*) {}

void CFTBaseSockIf::OnSendSpace(const FTLinkInfo*, std::int32_t, std::int32_t) {}

void CFTBaseSockIf::VPrepareLink(FTLinkReq*, std::uintptr_t, std::uintptr_t) {}
