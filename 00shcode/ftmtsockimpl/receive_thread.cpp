#include "00shcode/ftmtsockimpl/receive_thread.h"

#include <cassert>
#include <utility>
#include <vector>

#include "00shcode/ftmtsockimpl/engine.h"
#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/send_thread.h"
#include "sockif/sock_if_contract.h"

namespace {

constexpr std::int32_t kCheckIntervalMs = 2000;
constexpr std::int32_t kReadableWaitMs = 500;
constexpr std::int32_t kDownIdleWaitMs = 500;
constexpr std::int64_t kThrottleBytesPerMs = 12500;

}  // namespace

CFTMtSockOneLinkThrd::CFTMtSockOneLinkThrd(CFTMtSockImpl* engine, const FTLinkReq& req)
    : m_engine(engine),
      m_interface(engine->GetOwner()),
      m_close_reason(kCloseNone),
      m_link(req.link),
      m_listener(req.listener),
      m_cutter([this](const unsigned char* data, std::int32_t count) {
        return m_interface->VGetOnePkgLen(data, count, &m_link);
      }),
      m_last_wait_start(GetTickTime()),
      m_last_data(m_last_wait_start),
      m_send_thread(std::make_unique<CFTMtSockSendThrd>(this, engine)) {
  SetThreadName("CFTMtSockOneLinkThrd");
  SetIdleWaitMs(0);  // the wait for readability paces the thread
  SetTimer(TIMER_RECV_CHECK, kCheckIntervalMs);
}

CFTMtSockOneLinkThrd::~CFTMtSockOneLinkThrd() {
  DropUndelivered();
  CloseSocket();
}

bool CFTMtSockOneLinkThrd::IsAlive() const {
  const CFTScopedLock guard(&m_state_lock);
  return m_alive;
}

bool CFTMtSockOneLinkThrd::EndLink(std::int32_t reason) {
  const CFTScopedLock guard(&m_state_lock);
  if (!m_alive) return false;
  m_alive = false;
  m_close_reason = reason;
  return true;
}

std::int32_t CFTMtSockOneLinkThrd::GetCloseReason() const {
  const CFTScopedLock guard(&m_state_lock);
  return m_close_reason;
}

std::unique_ptr<FTLinkInfo> CFTMtSockOneLinkThrd::CopyLink() const {
  const CFTScopedLock guard(&m_socket_lock);
  return std::make_unique<FTLinkInfo>(m_link);
}

std::int32_t CFTMtSockOneLinkThrd::SendOnSocket(const void* data, std::int32_t length) {
  const CFTScopedLock guard(&m_socket_lock);
  return FTSockSend(m_link.socket, data, length);
}

std::int32_t CFTMtSockOneLinkThrd::WaitWritable(std::int32_t timeout_ms) const {
  const FTSocket socket = GetSocket();
  return socket == kNoSocket ? 0 : FTSockWaitWritable(socket, timeout_ms);
}

void CFTMtSockOneLinkThrd::CloseSocket() {
  const CFTScopedLock guard(&m_socket_lock);
  CloseSocketOf(&m_link);
}

FTSocket CFTMtSockOneLinkThrd::GetSocket() const {
  const CFTScopedLock guard(&m_socket_lock);
  return m_link.socket;
}

void CFTMtSockOneLinkThrd::VWriteLog(const char* path, int line, std::int32_t level_code,
                                     const char* format, va_list arguments) {
  m_interface->VWriteLog(path, line, level_code, format, arguments);
}

std::int32_t CFTMtSockOneLinkThrd::OnEnterThread() {
  CFTMsgQ::OnEnterThread();
  if (m_send_thread->StartThread(0) != 0) return RefuseLink();
  m_announced = true;
  m_interface->PostMsg(FTMSG_LINK_UP, m_link.link_id, m_link.priority, ToParam(CopyLink()),
                       ToParam(std::make_unique<FTLinkInfo>(m_listener)));
  return 0;
}

std::int32_t CFTMtSockOneLinkThrd::RefuseLink() {
  EngineLog::SendThreadNotStarted(m_interface, GetThreadCount(), GetLinkName(m_link));
  if (m_link.kind == LINK_KIND_OUT) {
    m_interface->PostMsg(FTMSG_CONNECT_FAILED, "", 1, ToParam(CopyLink()));
  }
  EndLink(kCloseNotStarted);
  EngineLog::LinkWithoutThread(m_interface, m_link.remote_address);
  StopThread();
  m_finish_time.Set(GetTickTime());
  return -1;
}

void CFTMtSockOneLinkThrd::OnMsg(const FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_RECV_PKG) {
    DeliverPkg(FromParam<CFTBuffer>(msg.p1));
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_RECV_CHECK) {
    CheckRecvTimeout();
    SetTimerAgain(msg);
  } else {
    CFTMsgQ::OnMsg(msg, draining);
  }
}

void CFTMtSockOneLinkThrd::OnLoop() {
  assert(IsOwnThread());
  if (!IsAlive()) {
    CloseSocket();
    SetIdleWaitMs(kDownIdleWaitMs);
    StopBothThreads();
    return;
  }
  SetIdleWaitMs(0);
  if (!m_read_last_pass) {
    m_last_wait_start = GetTickTime();
    if (FTSockWaitReadable(m_link.socket, kReadableWaitMs) == 0) return;
  }
  ReceiveOnce();
  SlowDownWhenBehind();
}

void CFTMtSockOneLinkThrd::ReceiveOnce() {
  const FTTime now = GetTickTime();
  CFTBuffer* const buffer = m_cutter.GetBuffer();
  std::int32_t count = 0;
  const std::int32_t result =
      FTSockRecv(m_link.socket, buffer->GetWritePos(), buffer->GetFreeTail(), &count);
  if (result < 0) {
    EndLink(kCloseRecvFailed);
    StopBothThreads();
    return;
  }
  m_read_last_pass = result > 0;
  if (!m_read_last_pass) return;
  m_undelivered += count;
  m_engine->State().undelivered_recv_bytes.Add(count);
  m_last_data = now;
  buffer->CommitWrite(count);
  if (!RecvAndCut()) StopBothThreads();
}

// False when the stream cannot be cut any further. Packages cut before the fault are posted all
// the same, but the loop ends before they would be delivered.
bool CFTMtSockOneLinkThrd::RecvAndCut() {
  std::vector<FTBufferPtr> packages;
  const CFTPkgCutter::Result result = m_cutter.Cut(m_interface->GetMaxPkgLen(), &packages);
  const bool go_on = EndAfterCut(result);
  EngineLog::RecvCount(m_interface, static_cast<std::int32_t>(packages.size()),
                       m_link.remote_address);
  for (FTBufferPtr& package : packages) {
    PostMsg(FTMSG_RECV_PKG, "", 1, ToParam(std::move(package)));
  }
  return go_on;
}

bool CFTMtSockOneLinkThrd::EndAfterCut(CFTPkgCutter::Result result) {
  const std::string& remote = m_link.remote_address;
  switch (result) {
    case CFTPkgCutter::Result::kGoOn:
      return true;
    case CFTPkgCutter::Result::kTooBig:
      if (EndLink(kCloseBadPkg)) EngineLog::PkgTooBig(m_interface, remote);
      break;
    case CFTPkgCutter::Result::kProtocolError:
      if (EndLink(kCloseBadPkg)) EngineLog::ProtocolError(m_interface, remote);
      break;
    case CFTPkgCutter::Result::kLengthGrew:
      if (EndLink(kCloseNotStarted)) EngineLog::PkgLenGrew(m_interface, remote);
      break;
  }
  return false;
}

// One idle wait before the next pass, and only if no package is waiting in our own queue.
void CFTMtSockOneLinkThrd::SlowDownWhenBehind() {
  FTEngineState& state = m_engine->State();
  if (state.event_mode == 0) return;
  const std::int64_t behind = state.undelivered_recv_bytes.Get();
  if (behind < state.recv_backlog_limit.Get() * FTEngineState::kBacklogUnit) return;
  const auto wait_ms = static_cast<std::int32_t>(behind / kThrottleBytesPerMs);
  SetIdleWaitMs(wait_ms);
  EngineLog::RecvThrottled(m_interface, wait_ms, m_link.remote_address);
}

void CFTMtSockOneLinkThrd::DeliverPkg(FTBufferPtr pkg) {
  const std::int32_t length = pkg == nullptr ? 0 : pkg->GetDataLen();
  m_undelivered -= length;
  FTEngineState& state = m_engine->State();
  if (state.event_mode != 0) {
    m_interface->PostMsg(FTMSG_RECV_PKG, m_link.link_id, m_link.priority, ToParam(CopyLink()),
                         ToParam(std::move(pkg)));
    return;
  }
  const FTLinkInfo link = m_link;
  std::int32_t keep = 0;
  m_interface->OnRecvPkg(&link, pkg.get(), &keep);
  if (keep != 0) pkg.release();
  state.undelivered_recv_bytes.Add(-length);
}

void CFTMtSockOneLinkThrd::CheckRecvTimeout() {
  if (!IsAlive()) {
    CloseSocket();
    StopBothThreads();
    return;
  }
  const std::int32_t limit_ms = m_interface->GetRecvTimeoutSec() * 1000;
  if (DiffMs(m_last_wait_start, m_last_data) <= limit_ms) return;
  if (EndLink(kCloseRecvTimeout)) EngineLog::RecvTimeout(m_interface, m_link.remote_address);
  StopBothThreads();
}

void CFTMtSockOneLinkThrd::StopBothThreads() {
  m_send_thread->StopThread();
  StopThread();
}

void CFTMtSockOneLinkThrd::OnExitThread() {
  StopBothThreads();
  if (m_announced) {
    ReportClosed();
    m_send_thread->WaitThreadExit();
  }
  if (GetCloseReason() == kCloseOnRequest) CloseSocket();
  CFTMsgQ::OnExitThread();
  DropUndelivered();
  m_finish_time.Set(GetTickTime());
}

void CFTMtSockOneLinkThrd::ReportClosed() {
  const std::int32_t reason = GetCloseReason();
  if (m_engine->State().event_mode == 0) {
    m_interface->OnLinkClosed(&m_link, reason);
    return;
  }
  const std::int32_t reported = reason == kCloseNone ? kCloseUnknown : reason;
  m_interface->PostMsg(FTMSG_LINK_CLOSED, m_link.link_id, m_link.priority, ToParam(CopyLink()),
                       static_cast<std::uintptr_t>(reported));
}

// What was received and will reach nobody no longer counts against the other links.
void CFTMtSockOneLinkThrd::DropUndelivered() {
  for (const FTMsg& msg : TakeQueuedMsgs()) {
    if (msg.id == FTMSG_RECV_PKG) FromParam<CFTBuffer>(msg.p1);
  }
  m_engine->State().undelivered_recv_bytes.Add(-m_undelivered);
  m_undelivered = 0;
}
