#include "00shcode/ftmtsockimpl/receive_thread.h"

#include <algorithm>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/send_thread.h"

namespace {

constexpr std::int32_t kCheckIntervalMs = 2000;
constexpr std::int32_t kReadableWaitMs = 500;
constexpr std::int64_t kLeastBacklogLimit = std::int64_t{4} << 20;  // bytes
constexpr std::int64_t kBacklogLimitPkgs = 4;
constexpr std::int32_t kLongestPauseMs = 100;

std::int32_t NextPauseMs(std::int32_t pause_ms) {
  return std::clamp(2 * pause_ms, 1, kLongestPauseMs);
}

std::int32_t BytesIn(const platform::BytePiece* pieces, int count) {
  std::int32_t bytes = 0;
  for (int i = 0; i < count; ++i) bytes += pieces[i].length;
  return bytes;
}

}  // namespace

void FTJoinAndDelete::operator()(CFTMtSockOneLinkThrd* link) const {
  link->WaitThreadExit();
  delete link;
}

CFTMtSockOneLinkThrd::CFTMtSockOneLinkThrd(CFTSockIfContract* protocol, CFTMsgQ* engine,
                                           FTEngineState* state, FTLinkReq* req)
    : CFTEngineThread(protocol, "CFTMtSockOneLinkThrd"),
      m_engine(engine),
      m_link(req, protocol, state),
      m_cutter([this](const unsigned char* data, std::int32_t count) {
        return Protocol().VGetOnePkgLen(data, count, &m_link.Info());
      }),
      m_last_wait_start(ft::GetTickTime()),
      m_last_data(m_last_wait_start),
      m_send_thread(std::make_unique<CFTMtSockSendThrd>(&m_link)) {
  SetIdleWaitMs(0);  // the wait for readability paces the thread
  SetTimer(TIMER_RECV_CHECK, kCheckIntervalMs);
}

CFTMtSockOneLinkThrd::~CFTMtSockOneLinkThrd() = default;

void CFTMtSockOneLinkThrd::StopThread() {
  CFTEngineThread::StopThread();
  m_send_thread->StopThread();  // which ends the waits of both
}

std::int32_t CFTMtSockOneLinkThrd::OnEnterThread() {
  CFTEngineThread::OnEnterThread();
  if (m_send_thread->StartThread(0) != 0) return RefuseLink();
  m_link.Post(
      FTLinkUpMsg::Make(m_link.CopyInfo(), std::make_unique<FTLinkInfo>(m_link.Listener())));
  m_link.SetAnnounced();
  return 0;
}

std::int32_t CFTMtSockOneLinkThrd::RefuseLink() {
  const FTLinkInfo& info = m_link.Info();
  EngineLog::SendThreadNotStarted(&Protocol(), GetThreadCount(), ft::GetLinkName(info));
  m_link.End(FTCloseReason::kNotStarted);
  m_link.CloseSocket();
  m_link.SetReportedDown();
  if (info.kind == LINK_KIND_OUT) {
    Protocol().Post("", 1, FTConnectFailedMsg::Make(m_link.CopyInfo()));
  }
  EngineLog::LinkWithoutThread(&Protocol(), info.remote_address);
  StopThread();
  TellEngine();
  return -1;
}

void CFTMtSockOneLinkThrd::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_RECV_CHECK) {
    CheckRecvTimeout();
    SetTimerAgain(msg);
  } else {
    CFTEngineThread::OnMsg(msg, draining);
  }
}

void CFTMtSockOneLinkThrd::OnLoop() {
  AssertOwnThread();
  if (!m_link.IsAlive()) {
    StopThread();
    return;
  }
  if (IsThrottled()) {
    PauseReading();
    return;
  }
  if (!m_read_last_pass) {
    m_last_wait_start = ft::GetTickTime();
    const bool look_again = std::exchange(m_may_yield, false) && m_yield.Try();
    if (!look_again && !m_link.WaitReadable(kReadableWaitMs)) return;
  }
  ReceiveOnce();
}

void CFTMtSockOneLinkThrd::ReceiveOnce() {
  const FTTime now = ft::GetTickTime();
  platform::BytePiece spaces[CFTPkgCutter::kMaxSpaces];
  const int space_count = m_cutter.GetSpaces(spaces);
  std::int32_t received = 0;
  const std::int32_t result = m_link.Receive(spaces, space_count, &received);
  if (result < 0) {
    m_link.End(FTCloseReason::kRecvFailed);
    StopThread();
    return;
  }
  // What did not fill the room was all there was.
  m_read_last_pass = received == BytesIn(spaces, space_count);
  if (result == 0) return;
  m_last_data = now;
  m_may_yield = true;
  m_throttled_ms = 0;
  m_pause_ms = 0;
  m_cutter.Commit(received);
  if (!RecvAndCut()) StopThread();
}

// False when the stream cannot be cut any further.
bool CFTMtSockOneLinkThrd::RecvAndCut() {
  const CFTPkgCutter::Pass pass = m_cutter.Cut(Protocol().GetMaxPkgLen(), &m_packages);
  const bool go_on = EndAfterCut(pass.result);
  EngineLog::RecvCount(&Protocol(), pass.cut, m_link.Info().remote_address);
  if (pass.cut > 0) m_longest_pkg = pass.longest;
  Deliver();
  return go_on;
}

bool CFTMtSockOneLinkThrd::EndAfterCut(CFTPkgCutter::Result result) {
  const std::string& remote = m_link.Info().remote_address;
  switch (result) {
    case CFTPkgCutter::Result::kGoOn:
      return true;
    case CFTPkgCutter::Result::kTooBig:
      if (m_link.End(FTCloseReason::kBadPkg)) EngineLog::PkgTooBig(&Protocol(), remote);
      break;
    case CFTPkgCutter::Result::kProtocolError:
      if (m_link.End(FTCloseReason::kBadPkg)) EngineLog::ProtocolError(&Protocol(), remote);
      break;
    case CFTPkgCutter::Result::kLengthGrew:
      if (m_link.End(FTCloseReason::kNotStarted)) EngineLog::PkgLenGrew(&Protocol(), remote);
      break;
    case CFTPkgCutter::Result::kNoLength:
      m_link.End(FTCloseReason::kRecvFailed);
      break;
  }
  return false;
}

void CFTMtSockOneLinkThrd::Deliver() {
  if (m_link.State().event_mode == FTEventMode::kByMessage) {
    PostPackages();
  } else {
    for (FTBufferPtr& pkg : m_packages) DeliverDirectly(std::move(pkg));
  }
  m_packages.clear();
}

void CFTMtSockOneLinkThrd::PostPackages() {
  if (m_packages.empty()) return;
  std::int64_t occupied = 0;
  for (FTBufferPtr& pkg : m_packages) {
    occupied += pkg->GetDataLen() + FTEngineState::kPkgCost;
    m_msgs.push_back(FTRecvPkgMsg::Make(&m_link.Info(), std::move(pkg)));
  }
  m_link.State().recv_backlog.Add(occupied);  // before any of them can be handled
  Protocol().PostAll(m_link.Info().link_id, m_link.Info().priority, &m_msgs);
}

void CFTMtSockOneLinkThrd::DeliverDirectly(FTBufferPtr pkg) {
  std::int32_t keep = 0;
  Protocol().OnRecvPkg(&m_link.Info(), pkg.get(), &keep);
  if (keep != 0) pkg.release();
}

std::int64_t CFTMtSockOneLinkThrd::BacklogLimit() const {
  return std::max(kLeastBacklogLimit, kBacklogLimitPkgs * m_longest_pkg);
}

// True while the protocol object is so far behind that the peer is to wait too. What may wait for
// the object is enough to keep it at work during a short pause.
bool CFTMtSockOneLinkThrd::IsThrottled() {
  if (m_link.State().event_mode == FTEventMode::kDirect) return false;
  const bool behind = m_link.State().recv_backlog.GetBytes() >= BacklogLimit();
  if (behind == std::exchange(m_throttled, behind)) return behind;
  const FTTime now = ft::GetTickTime();
  if (behind) {
    m_throttled_at = now;
    EngineLog::RecvThrottled(&Protocol(), NextPauseMs(m_pause_ms), m_link.Info().remote_address);
  } else {
    m_throttled_ms += ft::ElapsedMs(now, m_throttled_at);
  }
  return behind;
}

void CFTMtSockOneLinkThrd::PauseReading() {
  m_pause_ms = NextPauseMs(m_pause_ms);
  m_link.WaitForRoom(BacklogLimit(), m_pause_ms);
}

void CFTMtSockOneLinkThrd::CheckRecvTimeout() {
  if (!m_link.IsAlive()) {
    StopThread();
    return;
  }
  const std::int32_t limit_ms = Protocol().GetRecvTimeoutSec() * 1000;
  // Only while we listen can the peer be silent.
  if (ft::ElapsedMs(m_last_wait_start, m_last_data) - m_throttled_ms <= limit_ms) return;
  if (m_link.End(FTCloseReason::kRecvTimeout)) {
    EngineLog::RecvTimeout(&Protocol(), m_link.Info().remote_address);
  }
  StopThread();
}

// The send thread is joined before the end is reported, so that nothing about the link follows the
// report. Nobody else can end the link from then on. It may be in a callback for long, and the peer
// of an ended link shall not wait for that; on a link that is merely stopped it may be writing.
void CFTMtSockOneLinkThrd::OnExitThread() {
  StopThread();
  if (!m_link.IsAlive()) m_link.CloseSocket();
  m_send_thread->WaitThreadExit();
  m_link.CloseSocket();
  ReportClosed();
  CFTEngineThread::OnExitThread();
  TellEngine();
}

void CFTMtSockOneLinkThrd::ReportClosed() {
  const bool by_message = m_link.State().event_mode == FTEventMode::kByMessage;
  m_link.End(by_message ? FTCloseReason::kUnknown : FTCloseReason::kNone);
  m_link.SetReportedDown();
  if (by_message) {
    m_link.Post(FTLinkClosedMsg::Make(m_link.CopyInfo(), m_link.GetCloseReason(), m_link.Record()));
  } else {
    Protocol().OnLinkClosed(m_link.CopyInfo().get(), m_link.GetCloseReason());
  }
}

// The last step: whoever takes the message up joins this thread.
void CFTMtSockOneLinkThrd::TellEngine() {
  m_engine->Post("", 1, FTLinkFinishedMsg::Make(m_link.Record()));
}
