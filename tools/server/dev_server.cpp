#include "tools/server/dev_server.h"

#include <memory>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "client/package.h"
#include "tools/common/body_text.h"
#include "tools/common/count_text.h"
#include "tools/common/endpoint.h"
#include "tools/server/wire_package.h"

namespace {

constexpr std::uint32_t TIMER_BEHAVIOUR = 3001;
constexpr std::int32_t kLookAroundMs = 10;  // how late an act may be
constexpr std::int32_t kSendPriority = 3;
constexpr std::uint32_t kWithoutLimit = 0xFFFFFFFF;
constexpr char kBalanceMark = 0x01;

std::string ShowCloseReason(FTCloseReason reason) {
  switch (reason) {
    case FTCloseReason::kRecvTimeout:
      return "receive time-out";
    case FTCloseReason::kRecvFailed:
      return "ended by the peer";
    case FTCloseReason::kSendFailed:
      return "send failed";
    case FTCloseReason::kBadPkg:
      return "bad package";
    case FTCloseReason::kOnRequest:
      return "closed on request";
    case FTCloseReason::kNotStarted:
      return "not started";
    default:
      return "no reason recorded";
  }
}

// This end of the link, as its client reached it. The record holds the listener's address instead,
// and 0.0.0.0 is of use to nobody. Once the link is down the socket's number may be used again, but
// then Send refuses the answer.
std::string GetReachedAddress(const FTLinkInfo& link) {
  std::string address;
  std::uint16_t port = 0;
  FTSockGetAddrs(link.socket, &address, &port, nullptr, nullptr);
  return ShowEndpoint({address, port});
}

}  // namespace

DevServer::DevServer(const ServerSettings& settings, Report report)
    : CFTBaseSockIf(settings.event_mode, FTHeartbeatMode::kOnSendThread),
      m_settings(settings),
      m_report(std::move(report)) {}

DevServer::~DevServer() {
  Stop();
}

bool DevServer::Start() {
  if (StartThread(0) != 0) return false;
  const CFTScopedLock guard(&m_lock);
  while (!m_listen_tried) m_listen_tried_event.WaitUnlocked(&m_lock, kWithoutLimit);
  return m_port != 0;
}

void DevServer::Stop() {
  PostQuit();
  WaitThreadExit();
}

std::string DevServer::GetAddress() const {
  const CFTScopedLock guard(&m_lock);
  return m_settings.host + ":" + std::to_string(m_port);
}

std::int32_t DevServer::OnEnterThread() {
  CFTBaseSockIf::OnEnterThread();
  std::uint16_t port = 0;
  Listen(m_settings.host.c_str(), m_settings.port, 0, 0, &port);
  if (m_settings.make_behaviour) {
    // Timers are looked at once a cycle, so the cycle has to be as short.
    SetIdleWaitMs(kLookAroundMs);
    SetTimer(TIMER_BEHAVIOUR, kLookAroundMs);
  }
  const CFTScopedLock guard(&m_lock);
  m_port = port;
  m_listen_tried = true;
  m_listen_tried_event.Set();
  return 0;
}

void DevServer::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_BEHAVIOUR) {
    DoWhatIsDue();
    SetTimerAgain(msg);
  } else {
    CFTBaseSockIf::OnMsg(msg, draining);
  }
}

std::int32_t DevServer::VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo*) {
  return ft::GetPkgLen(data, count);
}

CFTBuffer* DevServer::VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction* release) {
  if (!m_settings.heartbeats) return nullptr;
  *release = &ReleaseFTBuffer;
  return ft::MakeHeartbeatPkg().release();
}

void DevServer::OnAccepted(const FTLinkInfo* link, const FTLinkInfo*) {
  ReportLink(*link, "up from " + link->remote_address + ":" + std::to_string(link->remote_port));
  const CFTScopedLock guard(&m_lock);
  // In event mode 0 OnLinkClosed may have run already; for a link that is up it will run later.
  const bool ends_later = m_settings.event_mode == FTEventMode::kByMessage;
  if (ends_later || IsLinkUp(link->link_id) != 0) BeginBehaviour(link->link_id);
}

void DevServer::OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) {
  std::string progress;
  {
    const CFTScopedLock guard(&m_lock);
    BeginBehaviour(link->link_id);  // in event mode 0 OnAccepted may come later, and leave it out
    progress = EndBehaviour(link->link_id);
  }
  ReportLink(*link, "closed: " + ShowCloseReason(reason) + progress);
}

void DevServer::OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) {
  PkgHead head;
  char* body = nullptr;
  std::int32_t body_len = 0;
  if (ft::DecodePkg(pkg, &head, &body, &body_len) != 0) {
    ReportLink(*link, "package with a wrong checksum, dropped");
    return;
  }
  const ft::FTBodyPtr owned(body);
  if (ft::IsHeartbeatBody(body, body_len)) {
    ReportLink(*link, "heartbeat");
    return;
  }
  ReportLink(*link, "package of " + ShowBodyShort(body, static_cast<std::size_t>(body_len)));
  TellBehaviour(*link, std::string(body, static_cast<std::size_t>(body_len)));
  if (IsBalanceQuestion(body, body_len)) {
    AnswerBalance(*link);
  } else if (m_settings.echo) {
    // The package goes back as it came.
    *keep = 1;
    Echo(*link, pkg);
  }
}

bool DevServer::IsBalanceQuestion(const char* body, std::int32_t body_len) const {
  return m_settings.answers_balance && body_len == 2 && body[0] == kBalanceMark;
}

void DevServer::Echo(const FTLinkInfo& link, CFTBuffer* pkg) {
  const std::int32_t result =
      SendPkg(link.link_id, pkg, &ReleaseFTBuffer, FTSendMode::kWithinLimits, FTOnRefusal::kRelease,
              kSendPriority);
  if (result != kSendQueued) ReportLink(link, "answer not sent");
}

void DevServer::AnswerBalance(const FTLinkInfo& link) {
  const std::string& set = m_settings.balance_answer;
  const std::string answer = set.empty() ? GetReachedAddress(link) : set;
  const bool sent = Send(link.link_id, MakeWirePackage(answer));
  ReportLink(link, sent ? "answered " + answer : "answer not sent");
}

void DevServer::BeginBehaviour(const std::string& link_id) {
  if (!m_settings.make_behaviour) return;
  const auto [entry, is_new] = m_links.try_emplace(link_id);
  if (!is_new) return;
  entry->second = m_settings.make_behaviour(ft::GetTickTime());
  DoWhatIsDue(link_id, entry->second.get());
}

// Its progress, to be put behind other words.
std::string DevServer::EndBehaviour(const std::string& link_id) {
  const auto found = m_links.find(link_id);
  if (found == m_links.end()) return {};
  const std::unique_ptr<Behaviour> behaviour = std::move(found->second);
  m_links.erase(found);
  if (!behaviour->IsComplete()) m_complete.store(false);
  m_ending = m_ending || behaviour->EndsServer();
  if (m_ending && m_links.empty()) m_done.store(true);
  return ", " + behaviour->ShowProgress();
}

void DevServer::TellBehaviour(const FTLinkInfo& link, const std::string& request) {
  if (!m_settings.make_behaviour) return;
  std::string remark;
  {
    const CFTScopedLock guard(&m_lock);
    BeginBehaviour(link.link_id);  // in event mode 0 OnAccepted may come later
    Behaviour* const behaviour = m_links[link.link_id].get();
    remark = behaviour->OnRequest(request, ft::GetTickTime());
    DoWhatIsDue(link.link_id, behaviour);
  }
  if (!remark.empty()) ReportLink(link, remark);
}

void DevServer::DoWhatIsDue() {
  const CFTScopedLock guard(&m_lock);
  for (const auto& [link_id, behaviour] : m_links) DoWhatIsDue(link_id, behaviour.get());
}

void DevServer::DoWhatIsDue(const std::string& link_id, Behaviour* behaviour) {
  const FTTime now = ft::GetTickTime();
  while (const ServerAct* const act = behaviour->FindDue(now)) {
    if (!act->wire.empty() && !Send(link_id, act->wire)) return;  // it stays due
    const bool closes = act->closes;
    behaviour->DropDue();
    if (closes) CloseLink(link_id, FTCloseMode::kAfterSending);
  }
}

// False when the link is gone or too much is queued on it.
bool DevServer::Send(const std::string& link_id, const std::string& wire) {
  const platform::ConstBytePiece piece{wire.data(), static_cast<int>(wire.size())};
  return SendCopy(link_id, &piece, 1, FTSendMode::kWithinLimits, kSendPriority) == kSendQueued;
}

void DevServer::ReportLink(const FTLinkInfo& link, const std::string& what) {
  m_report("link " + link.link_id + " " + what);
}
