#include "00shcode/ftmtsockimpl/connector.h"

#include <algorithm>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "sockif/sock_if_contract.h"

namespace {

constexpr std::int32_t kSweepIntervalMs = 70;
constexpr std::int32_t kIdleWaitMs = 100;
constexpr std::int32_t kSelectMs = 100;

}  // namespace

CFTMtSockConn::CFTMtSockConn(CFTSockIfContract* owner, CFTMsgQ* engine)
    : m_owner(owner), m_engine(engine) {
  SetThreadName("CFTMtSockConn");
  SetIdleWaitMs(0);
  SetTimer(TIMER_CONN_SWEEP, kSweepIntervalMs);
}

CFTMtSockConn::~CFTMtSockConn() {
  for (const auto& req : m_pending) CloseSocketOf(&req->link);
  ReleaseQueuedMsgs();
}

void CFTMtSockConn::VWriteLog(const char* path, int line, std::int32_t level_code,
                              const char* format, va_list arguments) {
  m_owner->VWriteLog(path, line, level_code, format, arguments);
}

void CFTMtSockConn::OnExitThread() {
  for (const auto& req : m_pending) ReportFailure(req->link);
  CFTMsgQ::OnExitThread();
}

void CFTMtSockConn::OnMsg(const FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_CONNECT) {
    StartConnect(FromParam<FTLinkInfo>(msg.p1));
  } else if (msg.id == FTMSG_CLOSE_LINK) {
    CancelOrPassOn(FromParam<std::string>(msg.p1), static_cast<std::int32_t>(msg.p2));
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_CONN_SWEEP) {
    SweepTimeouts();
    SetTimerAgain(msg);
  } else {
    CFTMsgQ::OnMsg(msg, draining);
  }
}

void CFTMtSockConn::OnLoop() {
  FTSockSet writable;
  FillWatchSet(&writable);
  if (writable.IsEmpty()) {
    SetIdleWaitMs(kIdleWaitMs);
    return;
  }
  SetIdleWaitMs(0);
  TakeReady(FTSockSelect(nullptr, &writable, kSelectMs), writable);
  RemoveDone();
}

void CFTMtSockConn::StartConnect(std::unique_ptr<FTLinkInfo> link) {
  auto req = std::make_unique<FTLinkReq>();
  req->link = std::move(*link);
  req->stamp = GetTickTime();
  FTLinkInfo& target = req->link;
  const std::int32_t result =
      BeginConnect(&target.socket, target.remote_port, target.remote_address.c_str(),
                   target.local_address.c_str(), target.local_port);
  if (result == kConnectInProgress) {
    m_pending.push_back(std::move(req));
  } else if (result == kConnectFailed) {
    EngineLog::BeginConnectFailed(this);
    ReportFailure(target);
  } else {
    FTSockGetAddrs(target.socket, &target.local_address, &target.local_port, nullptr, nullptr);
    m_engine->PostMsg(FTMSG_ADD_LINK, "", 1, ToParam(std::move(req)));
  }
}

void CFTMtSockConn::FillWatchSet(FTSockSet* set) {
  for (const auto& req : m_pending) {
    if (set->IsFull()) return;
    if (req->stage != kStageConnecting) continue;
    req->done = 0;
    if (!set->Contains(req->link.socket)) set->Add(req->link.socket);
  }
}

void CFTMtSockConn::TakeReady(std::int32_t ready, const FTSockSet& writable) {
  for (const auto& req : m_pending) {
    if (ready < 1) return;
    if (req->stage != kStageConnecting || !writable.Contains(req->link.socket)) continue;
    --ready;
    TakeResult(req.get());
  }
}

// A connect that failed also makes its socket ready, and for good. It stays pending until its
// time-out, as if no answer had come, but without its socket: watching that would burn the
// processor, and one that reached itself would keep the server from its own port.
void CFTMtSockConn::TakeResult(FTLinkReq* req) {
  FTLinkInfo& link = req->link;
  if (FTSockIsConnected(link.socket) == 0) {
    req->stage = kStageConnectFailed;
    CloseSocketOf(&link);
    return;
  }
  FTSockGetAddrs(link.socket, &link.local_address, &link.local_port, &link.remote_address,
                 &link.remote_port);
  req->done = 1;
  m_engine->PostMsg(FTMSG_ADD_LINK, "", 1, ToParam(std::make_unique<FTLinkReq>(*req)));
}

void CFTMtSockConn::SweepTimeouts() {
  const std::int32_t timeout_ms = m_owner->GetConnectTimeoutSec() * 1000;
  for (const auto& req : m_pending) {
    req->done = 0;
    if (DiffMs(GetTickTime(), req->stamp) <= timeout_ms) continue;
    ReportFailure(req->link);
    CloseSocketOf(&req->link);
    req->done = 1;
  }
  RemoveDone();
}

void CFTMtSockConn::CancelOrPassOn(std::unique_ptr<std::string> link_id,
                                   std::int32_t after_sending) {
  const auto found = std::find_if(m_pending.begin(), m_pending.end(),
                                  [&](const auto& req) { return req->link.link_id == *link_id; });
  if (found == m_pending.end()) {
    m_engine->PostMsg(FTMSG_CLOSE_LINK, "", 1, ToParam(std::move(link_id)),
                      static_cast<std::uintptr_t>(after_sending));
    return;
  }
  ReportFailure((*found)->link);
  CloseSocketOf(&(*found)->link);
  m_pending.erase(found);
}

void CFTMtSockConn::ReportFailure(const FTLinkInfo& link) {
  if (link.kind != LINK_KIND_OUT) return;
  m_owner->PostMsg(FTMSG_CONNECT_FAILED, "", 1, ToParam(std::make_unique<FTLinkInfo>(link)));
}

void CFTMtSockConn::RemoveDone() {
  m_pending.remove_if([](const auto& req) { return req->done == 1; });
}

void CFTMtSockConn::ReleaseQueuedMsgs() {
  for (const FTMsg& msg : TakeQueuedMsgs()) {
    if (msg.id == FTMSG_CONNECT) FromParam<FTLinkInfo>(msg.p1);
    if (msg.id == FTMSG_CLOSE_LINK) FromParam<std::string>(msg.p1);
  }
}
