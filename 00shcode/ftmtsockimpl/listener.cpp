#include "00shcode/ftmtsockimpl/listener.h"

#include <algorithm>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "sockif/sock_if_contract.h"

namespace {

constexpr std::int32_t kIdleWaitMs = 500;
constexpr std::int32_t kSelectMs = 500;
constexpr std::uint32_t kPauseAfterFailureMs = 2000;

}  // namespace

CFTMtSockListen::CFTMtSockListen(CFTSockIfContract* owner, CFTMsgQ* engine, CFTMsgQ* connector)
    : m_owner(owner), m_engine(engine), m_connector(connector) {
  SetThreadName("CFTMtSockListen");
  SetIdleWaitMs(kIdleWaitMs);
}

CFTMtSockListen::~CFTMtSockListen() {
  for (const auto& entry : m_listening) CloseSocketOf(entry.get());
  ReleaseQueuedMsgs();
}

void CFTMtSockListen::VWriteLog(const char* path, int line, std::int32_t level_code,
                                const char* format, va_list arguments) {
  m_owner->VWriteLog(path, line, level_code, format, arguments);
}

void CFTMtSockListen::OnExitThread() {
  for (const auto& entry : m_listening) CloseSocketOf(entry.get());
  CFTMsgQ::OnExitThread();
}

void CFTMtSockListen::OnMsg(const FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_ADD_LISTEN) {
    m_listening.push_back(FromParam<FTLinkInfo>(msg.p1));
  } else if (msg.id == FTMSG_CLOSE_LINK) {
    CloseOrPassOn(FromParam<std::string>(msg.p1), static_cast<std::int32_t>(msg.p2));
  } else {
    CFTMsgQ::OnMsg(msg, draining);
  }
}

void CFTMtSockListen::OnLoop() {
  if (m_listening.empty()) {
    SetIdleWaitMs(kIdleWaitMs);
    return;
  }
  SetIdleWaitMs(0);
  FTSockSet readable;
  for (const auto& entry : m_listening) {
    if (!readable.Contains(entry->socket) && !readable.Add(entry->socket)) break;
  }
  std::int32_t ready = FTSockSelect(&readable, nullptr, kSelectMs);
  for (const auto& entry : m_listening) {
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
    Sleep(kPauseAfterFailureMs);
  }
}

void CFTMtSockListen::Announce(const FTLinkInfo& entry, FTSocket socket, const FTSockAddr& peer) {
  auto req = std::make_unique<FTLinkReq>();
  FTLinkInfo& link = req->link;
  link.link_id = m_owner->VNewLinkId();
  link.socket = socket;
  link.kind = LINK_KIND_IN;
  FTSockAddrToStr(&peer, &link.remote_port, &link.remote_address, nullptr);
  FTSockGetAddrs(entry.socket, &link.local_address, nullptr, nullptr, nullptr);
  link.local_port = entry.local_port;
  req->listener = entry;
  req->stamp = GetTickTime();
  req->stage = kStageAccepted;
  m_engine->PostMsg(FTMSG_ADD_LINK, "", 1, ToParam(std::move(req)));
}

void CFTMtSockListen::CloseOrPassOn(std::unique_ptr<std::string> link_id,
                                    std::int32_t after_sending) {
  const auto found = std::find_if(m_listening.begin(), m_listening.end(),
                                  [&](const auto& entry) { return entry->link_id == *link_id; });
  if (found == m_listening.end()) {
    m_connector->PostMsg(FTMSG_CLOSE_LINK, "", 1, ToParam(std::move(link_id)),
                         static_cast<std::uintptr_t>(after_sending));
    return;
  }
  CloseSocketOf(found->get());
  m_listening.erase(found);
}

void CFTMtSockListen::ReleaseQueuedMsgs() {
  for (const FTMsg& msg : TakeQueuedMsgs()) {
    if (msg.id == FTMSG_ADD_LISTEN) CloseSocketOf(FromParam<FTLinkInfo>(msg.p1).get());
    if (msg.id == FTMSG_CLOSE_LINK) FromParam<std::string>(msg.p1);
  }
}
