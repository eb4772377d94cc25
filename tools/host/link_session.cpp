#include "tools/host/link_session.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "tools/commands/exit_status.h"
#include "tools/terminal/console.h"
#include "tools/terminal/count_text.h"
#include "tools/terminal/interrupt.h"

namespace {

constexpr int kLookAroundMs = 50;  // how long a line or an interrupt may wait for notice
constexpr std::size_t kMostServers = 5;

bool HasPassed(const FTTime& since, std::int32_t seconds) {
  return ft::DiffMs(ft::GetTickTime(), since) >= seconds * 1000;
}

}  // namespace

LinkSession::LinkSession(const LinkOptions& options)
    : m_options(options), m_down_since(ft::GetTickTime()), m_last_progress(m_down_since) {}

int LinkSession::Run() {
  if (m_lines.StartThread(0) != 0) throw std::runtime_error("the system makes no thread");
  m_started = true;
  Link();
  std::optional<int> end;
  while (!end) {
    if (const auto notification = m_window.Wait(kLookAroundMs)) Handle(*notification);
    SendLines();
    end = FindEnd();
  }
  m_client.UnLink();
  return *end;
}

void LinkSession::Link() {
  std::vector<Endpoint> servers = m_options.servers;
  // Up to the time-out of the first connect nothing else would show.
  std::fprintf(stderr, "ftc: connecting to %s\n", ShowEndpoint(servers[0]).c_str());
  servers.resize(kMostServers);  // a port of 0 ends the list
  m_client.Link(servers[0].host.c_str(), servers[0].port, servers[1].host.c_str(), servers[1].port,
                servers[2].host.c_str(), servers[2].port, servers[3].host.c_str(), servers[3].port,
                servers[4].host.c_str(), servers[4].port, m_window.Window(),
                m_window.MessageNumber());
}

void LinkSession::Handle(const Notification& notification) {
  if (notification.IsPackage()) {
    ++m_packages;
    PrintStamped(ShowCount(static_cast<std::int64_t>(notification.body.size()), "byte") + ": " +
                 ShowBody(notification.body, m_options.style));
    return;
  }
  PrintStamped(ShowLinkEvent(notification.link_event));
  m_up = notification.link_event == LINK_EVENT_UP;
  m_was_up = m_was_up || m_up;
  if (notification.link_event == LINK_EVENT_CLOSED) m_down_since = ft::GetTickTime();
}

void LinkSession::SendLines() {
  if (!m_up && !m_told_to_wait && !m_lines.IsEmpty()) {
    m_told_to_wait = true;
    PrintStamped("waiting for the link; lines are sent when it is up");
  }
  while (m_up && !m_lines.IsEmpty()) {
    const std::string line = m_lines.GetFirst();
    // The link has just closed, and its event is on the way: the line waits for the next link.
    if (m_client.AskData(line.data(), static_cast<unsigned int>(line.size())) != 0) break;
    m_lines.DropFirst();
    ++m_requests;
    m_last_progress = ft::GetTickTime();
  }
  if (m_input_ended || !m_lines.HasEnded()) return;
  m_input_ended = true;
  m_last_progress = ft::GetTickTime();
}

std::optional<int> LinkSession::FindEnd() {
  if (IsInterrupted()) return kExitDone;
  if (IsLinkOverdue()) {
    std::fprintf(stderr, "ftc: no link within %s\n",
                 ShowCount(m_options.connect_wait_sec, "second").c_str());
    return kExitFailed;
  }
  if (!m_was_up || !m_input_ended || !m_lines.IsEmpty()) return {};
  return FindEndOfAnswers();
}

// While input is still coming, a link that was up once may take any time to come back.
bool LinkSession::IsLinkOverdue() const {
  if (m_up) return false;
  if (!m_was_up) return HasPassed(m_down_since, m_options.connect_wait_sec);
  return m_input_ended && !m_lines.IsEmpty() &&
         HasPassed(std::max(m_down_since, m_last_progress), m_options.connect_wait_sec);
}

std::optional<int> LinkSession::FindEndOfAnswers() const {
  if (m_packages >= m_requests || m_options.answer_wait_sec == 0) return kExitDone;
  if (!HasPassed(m_last_progress, m_options.answer_wait_sec)) return {};
  std::fprintf(stderr, "ftc: %lld sent, but %lld received within %s\n",
               static_cast<long long>(m_requests), static_cast<long long>(m_packages),
               ShowCount(m_options.answer_wait_sec, "second").c_str());
  return kExitFailed;
}
