#include "00shcode/ftmtsockimpl/connector.h"

#include <algorithm>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"

namespace {

constexpr std::int32_t kSweepIntervalMs = 70;
constexpr std::int32_t kSelectMs = 100;

}  // namespace

CFTMtSockConn::CFTMtSockConn(CFTSockIfContract* protocol, CFTMsgQ* engine)
    : CFTSelectThread(protocol, "CFTMtSockConn"), m_engine(engine) {
  SetIdleWaitMs(kUntilWoken);
}

CFTMtSockConn::~CFTMtSockConn() = default;

void CFTMtSockConn::OnExitThread() {
  for (const FTLinkReqPtr& req : m_pending) ReportFailure(req->link);
  CFTSelectThread::OnExitThread();
}

void CFTMtSockConn::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_CONNECT) {
    auto [link] = FTConnectMsg::Take(msg);
    StartConnect(std::move(link));
  } else if (msg.id == FTMSG_CLOSE_LINK) {
    auto [link_id, mode] = FTCloseLinkMsg::Take(msg);
    CancelOrPassOn(std::move(link_id), mode);
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_CONN_SWEEP) {
    SweepTimeouts();
    m_sweeps = !m_pending.empty();
    if (m_sweeps) SetTimerAgain(msg);
  } else {
    CFTSelectThread::OnMsg(msg, draining);
  }
}

void CFTMtSockConn::OnLoop() {
  AssertOwnThread();
  FTSockSet writable;
  FillWatchSet(&writable);
  if (writable.IsEmpty()) {
    SetIdleWaitMs(kUntilWoken);
    return;
  }
  SetIdleWaitMs(0);
  TakeReady(Select(nullptr, &writable, kSelectMs), writable);
  RemoveDone();
}

void CFTMtSockConn::StartConnect(std::unique_ptr<FTLinkInfo> link) {
  FTLinkReqPtr req(new FTLinkReq);
  req->link = std::move(*link);
  req->stamp = ft::GetTickTime();
  FTLinkInfo& target = req->link;
  const FTConnectResult result =
      ft::BeginConnect(&target.socket, target.remote_port, target.remote_address.c_str(),
                       target.local_address.c_str(), target.local_port);
  if (result == FTConnectResult::kInProgress) {
    m_pending.push_back(std::move(req));
    if (!std::exchange(m_sweeps, true)) SetTimer(TIMER_CONN_SWEEP, kSweepIntervalMs);
  } else if (result == FTConnectResult::kFailed) {
    EngineLog::BeginConnectFailed(this);
    ReportFailure(target);
  } else {
    FTSockGetAddrs(target.socket, &target.local_address, &target.local_port, nullptr, nullptr);
    m_engine->Post("", 1, FTAddLinkMsg::Make(std::move(req)));
  }
}

void CFTMtSockConn::FillWatchSet(FTSockSet* set) {
  for (const FTLinkReqPtr& req : m_pending) {
    if (set->IsFull()) return;
    if (req->stage != FTConnectStage::kConnecting) continue;
    req->done = 0;
    if (!set->Contains(req->link.socket)) set->Add(req->link.socket);
  }
}

void CFTMtSockConn::TakeReady(std::int32_t ready, const FTSockSet& writable) {
  for (FTLinkReqPtr& req : m_pending) {
    if (ready < 1) return;
    const bool connecting = req->stage == FTConnectStage::kConnecting;
    if (!connecting || !writable.Contains(req->link.socket)) continue;
    --ready;
    TakeResult(&req);
  }
}

// A connect that failed also makes its socket ready, and for good. It stays pending until its
// time-out, as if no answer had come, but without its socket: watching that would burn the
// processor, and one that reached itself would keep the server from its own port.
void CFTMtSockConn::TakeResult(FTLinkReqPtr* req) {
  FTLinkInfo& link = (*req)->link;
  if (FTSockTakeConnected(link.socket, &link.local_address, &link.local_port, &link.remote_address,
                          &link.remote_port) == 0) {
    (*req)->stage = FTConnectStage::kFailed;
    FTSockClose(std::exchange(link.socket, kNoSocket));
    return;
  }
  auto connected = std::make_unique<FTLinkReq>(**req);
  link.socket = kNoSocket;  // the engine's from here on
  (*req)->done = 1;
  m_engine->Post("", 1, FTAddLinkMsg::Make(FTLinkReqPtr(connected.release())));
}

void CFTMtSockConn::SweepTimeouts() {
  const std::int32_t timeout_ms = Protocol().GetConnectTimeoutSec() * 1000;
  for (const FTLinkReqPtr& req : m_pending) {
    req->done = 0;
    if (ft::ElapsedMs(ft::GetTickTime(), req->stamp) <= timeout_ms) continue;
    ReportFailure(req->link);
    req->done = 1;
  }
  RemoveDone();
}

void CFTMtSockConn::CancelOrPassOn(std::unique_ptr<std::string> link_id, FTCloseMode mode) {
  const auto found = std::find_if(m_pending.begin(), m_pending.end(),
                                  [&](const auto& req) { return req->link.link_id == *link_id; });
  if (found == m_pending.end()) {
    m_engine->Post("", 1, FTCloseLinkMsg::Make(std::move(link_id), mode));
    return;
  }
  ReportFailure((*found)->link);
  m_pending.erase(found);
}

void CFTMtSockConn::ReportFailure(const FTLinkInfo& link) {
  if (link.kind != LINK_KIND_OUT) return;
  Protocol().Post("", 1, FTConnectFailedMsg::Make(std::make_unique<FTLinkInfo>(link)));
}

void CFTMtSockConn::RemoveDone() {
  m_pending.remove_if([](const FTLinkReqPtr& req) { return req->done == 1; });
}
