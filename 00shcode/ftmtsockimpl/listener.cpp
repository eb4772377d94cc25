#include "00shcode/ftmtsockimpl/listener.h"

#include <algorithm>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"

namespace {

constexpr std::int32_t kSelectMs = 500;
constexpr std::int32_t kPauseAfterFailureMs = 2000;

}  // namespace

CFTMtSockListen::CFTMtSockListen(CFTSockIfContract* protocol, CFTMsgQ* engine, CFTMsgQ* connector)
    : CFTSelectThread(protocol, "CFTMtSockListen"), m_engine(engine), m_connector(connector) {
  SetIdleWaitMs(kUntilWoken);
}

CFTMtSockListen::~CFTMtSockListen() = default;

void CFTMtSockListen::OnExitThread() {
  m_listening.clear();  // closes the sockets
  CFTSelectThread::OnExitThread();
}

void CFTMtSockListen::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_ADD_LISTEN) {
    auto [entry] = FTAddListenMsg::Take(msg);
    m_listening.push_back(std::move(entry));
  } else if (msg.id == FTMSG_CLOSE_LINK) {
    auto [link_id, mode] = FTCloseLinkMsg::Take(msg);
    CloseOrPassOn(std::move(link_id), mode);
  } else {
    CFTSelectThread::OnMsg(msg, draining);
  }
}

void CFTMtSockListen::OnLoop() {
  AssertOwnThread();
  if (m_listening.empty()) {
    SetIdleWaitMs(kUntilWoken);
    return;
  }
  SetIdleWaitMs(0);
  FTSockSet readable;
  for (const FTListenerPtr& entry : m_listening) {
    if (!readable.Contains(entry->socket) && !readable.Add(entry->socket)) break;
  }
  std::int32_t ready = Select(&readable, nullptr, kSelectMs);
  for (const FTListenerPtr& entry : m_listening) {
    if (ready < 1) return;
    if (!readable.Contains(entry->socket)) continue;
    --ready;
    AcceptOn(*entry);
  }
}

void CFTMtSockListen::AcceptOn(const FTLinkInfo& entry) {
  FTSocket socket = kNoSocket;
  FTSockAddr peer{};
  const std::int32_t result = FTSockAccept(entry.socket, &socket, &peer);
  if (result > 0) {
    Announce(entry, socket, peer);
  } else if (result < 0) {
    EngineLog::AcceptFailed(this);
    Pause(kPauseAfterFailureMs);
  }
}

void CFTMtSockListen::Announce(const FTLinkInfo& entry, FTSocket socket, const FTSockAddr& peer) {
  FTLinkReqPtr req(new FTLinkReq);
  FTLinkInfo& link = req->link;
  link.socket = socket;
  link.link_id = Protocol().VNewLinkId();
  link.kind = LINK_KIND_IN;
  FTSockAddrToStr(&peer, &link.remote_port, &link.remote_address, nullptr);
  FTSockGetAddrs(entry.socket, &link.local_address, nullptr, nullptr, nullptr);
  link.local_port = entry.local_port;
  req->listener = entry;
  req->stamp = ft::GetTickTime();
  m_engine->Post("", 1, FTAddLinkMsg::Make(std::move(req)));
}

void CFTMtSockListen::CloseOrPassOn(std::unique_ptr<std::string> link_id, FTCloseMode mode) {
  const auto found = std::find_if(m_listening.begin(), m_listening.end(),
                                  [&](const auto& entry) { return entry->link_id == *link_id; });
  if (found == m_listening.end()) {
    m_connector->Post("", 1, FTCloseLinkMsg::Make(std::move(link_id), mode));
    return;
  }
  m_listening.erase(found);
}
