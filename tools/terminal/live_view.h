#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include "tools/common/body_text.h"
#include "tools/host/link_observer.h"
#include "tools/host/link_statistics.h"
#include "tools/terminal/line_editor.h"
#include "tools/terminal/screen.h"

// Shows a session on a screen: state, figures, what happened last, and a line to type in.
class LiveView final : public LinkObserver {
 public:
  // With a keyboard the requests are those that are typed.
  LiveView(std::unique_ptr<Screen> screen, std::size_t servers, BodyStyle style, bool keyboard);

  LineSource* GetTypedLines() { return &m_editor; }

  void OnConnecting(const Endpoint& server) override;
  void OnLinkEvent(std::intptr_t link_event) override;
  void OnPackage(const std::string& body) override;
  void OnRequest(const std::string& body) override;
  void OnRequestsWait() override;
  void OnPass() override;
  // Gives the terminal back, with what the library wrote; prints the totals.
  void OnEnd(const LinkEnd& end) override;

 private:
  void Log(const std::string& text);
  void TakeKeys();
  void Scroll(const Key& key);
  void TakeErrorText();
  void LogErrorLines(bool unfinished_too);
  void Paint();

  std::unique_ptr<Screen> m_screen;
  const std::size_t m_servers;
  const BodyStyle m_style;
  const bool m_keyboard;
  LineEditor m_editor;
  LinkStatistics m_statistics{ft::GetTickTime()};
  std::string m_server;  // whose turn it is, with its place in the list
  std::size_t m_attempts = 0;
  std::deque<std::string> m_log;
  std::size_t m_scrolled = 0;
  std::string m_error_text;  // what is not in the log yet
  FTTime m_last_pass;
};
