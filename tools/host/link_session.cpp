#include "tools/host/link_session.h"

#include <algorithm>

#include "tools/common/count_text.h"
#include "tools/common/exit_status.h"
#include "tools/common/interrupt.h"

namespace {

constexpr int kLookAroundMs = 50;  // how long a line or an interrupt may wait for notice
constexpr std::size_t kMostServers = 5;
constexpr int kMostAtOnce = 100;  // packages, and lines, before the others have their turn

bool HasPassed(const FTTime& since, std::int32_t seconds) {
  return ft::DiffMs(ft::GetTickTime(), since) >= seconds * 1000;
}

}  // namespace

LinkSession::LinkSession(const LinkOptions& options, LineSource* lines, LinkObserver* observer)
    : m_options(options),
      m_lines(lines),
      m_observer(observer),
      m_down_since(ft::GetTickTime()),
      m_last_progress(m_down_since) {}

int LinkSession::Run() {
  Link();
  std::optional<LinkEnd> end;
  for (bool more_lines = false; !end;) {
    TakeNotifications(more_lines ? 0 : kLookAroundMs);
    more_lines = SendLines();
    m_observer->OnPass();
    end = FindEnd();
  }
  m_client.UnLink();
  m_observer->OnEnd(*end);
  return end->status;
}

void LinkSession::Link() {
  std::vector<Endpoint> servers = m_options.servers;
  TellServer();
  servers.resize(kMostServers);  // a port of 0 ends the list
  m_client.Link(servers[0].host.c_str(), servers[0].port, servers[1].host.c_str(), servers[1].port,
                servers[2].host.c_str(), servers[2].port, servers[3].host.c_str(), servers[3].port,
                servers[4].host.c_str(), servers[4].port, m_window.Window(),
                m_window.MessageNumber());
}

void LinkSession::TellServer() {
  m_observer->OnConnecting(m_options.servers[m_turn % m_options.servers.size()]);
}

void LinkSession::TakeNotifications(int wait_ms) {
  auto notification = m_window.Wait(wait_ms);
  for (int taken = 0; notification; notification = m_window.Wait(0)) {
    Handle(*notification);
    if (++taken == kMostAtOnce) return;
  }
}

void LinkSession::Handle(const Notification& notification) {
  if (!notification.IsPackage()) return HandleLinkEvent(notification.link_event);
  ++m_packages;
  m_observer->OnPackage(notification.body);
}

// Events do not name the server, but each attempt that ends gives the next one its turn.
void LinkSession::HandleLinkEvent(std::intptr_t link_event) {
  m_observer->OnLinkEvent(link_event);
  m_up = link_event == LINK_EVENT_UP;
  m_was_up = m_was_up || m_up;
  if (link_event == LINK_EVENT_CLOSED) m_down_since = ft::GetTickTime();
  if (m_up) return;
  ++m_turn;
  TellServer();
}

bool LinkSession::SendLines() {
  if (!m_up && !m_told_to_wait && !m_lines->IsEmpty()) {
    m_told_to_wait = true;
    m_observer->OnRequestsWait();
  }
  for (int sent = 0; m_up && !m_lines->IsEmpty(); ++sent) {
    if (sent == kMostAtOnce) return true;
    const std::string line = m_lines->GetFirst();
    // The link has just closed, and its event is on the way: the line waits for the next link.
    if (m_client.AskData(line.data(), static_cast<unsigned int>(line.size())) != 0) break;
    m_lines->DropFirst();
    m_observer->OnRequest(line);
    ++m_requests;
    m_last_progress = ft::GetTickTime();
  }
  if (m_input_ended || !m_lines->HasEnded()) return false;
  m_input_ended = true;
  m_last_progress = ft::GetTickTime();
  return false;
}

std::optional<LinkEnd> LinkSession::FindEnd() {
  if (IsInterrupted()) return LinkEnd{kExitDone, {}};
  if (IsLinkOverdue()) {
    return LinkEnd{kExitFailed,
                   "no link within " + ShowCount(m_options.connect_wait_sec, "second")};
  }
  if (!m_was_up || !m_input_ended || !m_lines->IsEmpty()) return {};
  return FindEndOfAnswers();
}

// While input is still coming, a link that was up once may take any time to come back.
bool LinkSession::IsLinkOverdue() const {
  if (m_up) return false;
  if (!m_was_up) return HasPassed(m_down_since, m_options.connect_wait_sec);
  return m_input_ended && !m_lines->IsEmpty() &&
         HasPassed(std::max(m_down_since, m_last_progress), m_options.connect_wait_sec);
}

std::optional<LinkEnd> LinkSession::FindEndOfAnswers() const {
  if (m_packages >= m_requests || m_options.answer_wait_sec == 0) return LinkEnd{kExitDone, {}};
  if (!HasPassed(m_last_progress, m_options.answer_wait_sec)) return {};
  return LinkEnd{kExitFailed, std::to_string(m_requests) + " sent, but " +
                                  std::to_string(m_packages) + " received within " +
                                  ShowCount(m_options.answer_wait_sec, "second")};
}
