#include "tools/terminal/live_view.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "tools/common/console.h"
#include "tools/common/time_text.h"
#include "tools/host/notification.h"
#include "tools/terminal/link_picture.h"

namespace {

constexpr std::int32_t kPassMs = 40;  // between two looks at keys and two paintings
constexpr std::size_t kMostLogLines = 2000;
constexpr std::size_t kLongestLogBody = 256;
constexpr std::size_t kScrollStep = 10;

// What a screen can show in one line.
std::string MakeShowable(std::string text) {
  std::replace(text.begin(), text.end(), '\t', ' ');
  if (IsPrintableText(text)) return text;
  for (char& c : text) {
    if (c < 0x20 || c > 0x7e) c = '?';
  }
  return text;
}

std::int64_t SizeOf(const std::string& body) {
  return static_cast<std::int64_t>(body.size());
}

}  // namespace

LiveView::LiveView(std::unique_ptr<Screen> screen, std::size_t servers, BodyStyle style,
                   bool keyboard)
    : m_screen(std::move(screen)), m_servers(servers), m_style(style), m_keyboard(keyboard) {}

void LiveView::OnConnecting(const Endpoint& server) {
  m_server = ShowEndpoint(server);
  if (m_servers > 1) {
    m_server += " (server " + std::to_string(m_attempts % m_servers + 1) + " of " +
                std::to_string(m_servers) + ")";
  }
  ++m_attempts;
  Log("connecting to " + m_server);
}

void LiveView::OnLinkEvent(std::intptr_t link_event) {
  m_statistics.CountLinkEvent(link_event, ft::GetTickTime());
  Log(ShowLinkEvent(link_event));
}

void LiveView::OnPackage(const std::string& body) {
  m_statistics.CountPackage(SizeOf(body), ft::GetTickTime());
  Log(ShowPackage(body, m_style, kLongestLogBody));
}

void LiveView::OnRequest(const std::string& body) {
  m_statistics.CountRequest(SizeOf(body), ft::GetTickTime());
  Log("sent " + ShowPackage(body, m_style, kLongestLogBody));
}

void LiveView::OnRequestsWait() {
  Log("waiting for the link; lines are sent when it is up");
}

void LiveView::OnPass() {
  const FTTime now = ft::GetTickTime();
  if (ft::DiffMs(now, m_last_pass) < kPassMs) return;
  m_last_pass = now;
  TakeKeys();
  TakeErrorText();
  Paint();
}

void LiveView::OnEnd(const LinkEnd& end) {
  m_screen.reset();
  if (!end.fault.empty()) std::fprintf(stderr, "ftc: %s\n", end.fault.c_str());
  for (const std::string& line : ShowTotals(m_statistics)) PrintLine(line);
}

void LiveView::Log(const std::string& text) {
  m_log.push_back(MakeShowable(ShowTimeOfDay(ft::GetNowTime()) + "  " + text));
  if (m_log.size() > kMostLogLines) m_log.pop_front();
  if (m_scrolled > 0) m_scrolled = std::min(m_scrolled + 1, m_log.size());
}

void LiveView::TakeKeys() {
  while (const auto key = m_screen->ReadKey()) {
    Scroll(*key);
    if (m_keyboard) m_editor.Take(*key);
  }
}

void LiveView::Scroll(const Key& key) {
  if (key.kind == Key::Kind::kPageUp) m_scrolled = std::min(m_scrolled + kScrollStep, m_log.size());
  if (key.kind == Key::Kind::kPageDown) m_scrolled -= std::min(m_scrolled, kScrollStep);
}

// A few lines of the library have no end; they are shown when nothing more comes.
void LiveView::TakeErrorText() {
  const std::string text = m_screen->TakeErrorText();
  m_error_text += text;
  LogErrorLines(text.empty());
}

void LiveView::LogErrorLines(bool unfinished_too) {
  while (!m_error_text.empty()) {
    const std::size_t end = m_error_text.find('\n');
    if (end == std::string::npos && !unfinished_too) return;
    Log(m_error_text.substr(0, end));
    m_error_text.erase(0, end == std::string::npos ? end : end + 1);
  }
}

void LiveView::Paint() {
  LinkPicture picture;
  picture.statistics = &m_statistics;
  picture.tick_now = ft::GetTickTime();
  picture.wall_now = ft::GetNowTime();
  picture.server = m_server;
  picture.log = &m_log;
  picture.scrolled = m_scrolled;
  picture.unicode = m_screen->HasUnicode();
  const bool typing = m_keyboard && !m_editor.HasEnded();
  if (typing) picture.input = m_editor.GetText();
  m_screen->Paint(DrawLink(picture, m_screen->GetSize()), typing);
}
