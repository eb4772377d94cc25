#include "tools/server/dev_server.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "client/package.h"
#include "tools/commands/endpoint.h"
#include "tools/terminal/body_text.h"
#include "tools/terminal/count_text.h"

namespace {

constexpr std::uint32_t TIMER_PUSH = 3001;
constexpr std::int32_t kShortestPushIntervalMs = 10;
constexpr std::int32_t kLongestPushIntervalMs = 50;
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

FTBufferPtr MakePkg(const std::string& body) {
  auto pkg = std::make_unique<CFTBuffer>();
  ft::EncodePkg(pkg.get(), body.data(), static_cast<std::int32_t>(body.size()));
  return pkg;
}

}  // namespace

DevServer::DevServer(const ServerSettings& settings, Report report)
    : CFTBaseSockIf(settings.event_mode, FTHeartbeatMode::kOnSendThread),
      m_settings(settings),
      m_report(std::move(report)),
      m_push_interval_ms(std::clamp(1000 / std::max(settings.push.rate, 1), kShortestPushIntervalMs,
                                    kLongestPushIntervalMs)) {}

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
  if (m_settings.push.rate > 0) {
    // Timers are looked at once a cycle, so the cycle has to be as short.
    SetIdleWaitMs(m_push_interval_ms);
    SetTimer(TIMER_PUSH, m_push_interval_ms);
  }
  const CFTScopedLock guard(&m_lock);
  m_port = port;
  m_listen_tried = true;
  m_listen_tried_event.Set();
  return 0;
}

void DevServer::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_PUSH) {
    PushWhatIsDue();
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
  if (IsLinkUp(link->link_id) == 0) return;
  m_links.emplace(link->link_id, PushSchedule(m_settings.push, ft::GetTickTime()));
}

void DevServer::OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) {
  std::string what = "closed: " + ShowCloseReason(reason);
  {
    const CFTScopedLock guard(&m_lock);
    const auto found = m_links.find(link->link_id);
    if (found != m_links.end()) {
      const PushSchedule& schedule = found->second;
      if (m_settings.push.rate > 0) {
        what += ", " + ShowCount(schedule.GetPushed(), "package") + " pushed";
      }
      const bool complete = schedule.IsComplete();
      m_links.erase(found);
      if (complete && m_links.empty()) m_done.store(true);
    }
  }
  ReportLink(*link, what);
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
  if (!Send(link.link_id, FTBufferPtr(pkg))) ReportLink(link, "answer not sent");
}

void DevServer::AnswerBalance(const FTLinkInfo& link) {
  const std::string& set = m_settings.balance_answer;
  const std::string answer = set.empty() ? GetReachedAddress(link) : set;
  const bool sent = Send(link.link_id, MakePkg(answer));
  ReportLink(link, sent ? "answered " + answer : "answer not sent");
}

void DevServer::PushWhatIsDue() {
  const FTTime now = ft::GetTickTime();
  const CFTScopedLock guard(&m_lock);
  for (auto& [link_id, schedule] : m_links) {
    if (schedule.IsComplete()) continue;  // and being closed
    schedule.Advance(now);
    while (schedule.IsDue() && Send(link_id, MakePkg(schedule.MakeBody()))) schedule.CountPushed();
    if (schedule.IsComplete()) CloseLink(link_id, FTCloseMode::kAfterSending);
  }
}

// False when the link is gone or too much is queued on it.
bool DevServer::Send(const std::string& link_id, FTBufferPtr pkg) {
  return SendPkg(link_id, pkg.release(), &ReleaseFTBuffer, FTSendMode::kWithinLimits,
                 FTOnRefusal::kRelease, kSendPriority) == kSendQueued;
}

void DevServer::ReportLink(const FTLinkInfo& link, const std::string& what) {
  m_report("link " + link.link_id + " " + what);
}
