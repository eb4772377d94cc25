#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/clock.h"
#include "client/clientdatasource.h"
#include "tools/commands/endpoint.h"
#include "tools/host/host_window.h"
#include "tools/terminal/body_text.h"
#include "tools/terminal/input_lines.h"

struct LinkOptions {
  std::vector<Endpoint> servers;  // 1 to 5
  BodyStyle style = BodyStyle::kTextIfPrintable;
  std::int32_t answer_wait_sec = 2;
  std::int32_t connect_wait_sec = 30;
};

// A host at the command line: sends the lines of the standard input as requests and prints what
// the library tells it. One per process.
class LinkSession {
 public:
  explicit LinkSession(const LinkOptions& options);

  // Blocks until the input has ended and its answers have come, until no link comes up, or until
  // an interrupt; ends the client. The exit status.
  int Run();

  // True when the input's reader still waits for a line, so that the object cannot be destroyed.
  bool IsReading() const { return m_started && !m_lines.HasEnded(); }

 private:
  void Link();
  void Handle(const Notification& notification);
  void SendLines();
  std::optional<int> FindEnd();
  bool IsLinkOverdue() const;
  std::optional<int> FindEndOfAnswers() const;

  const LinkOptions m_options;
  CClientDataSource m_client;
  HostWindow m_window{&m_client};
  InputLines m_lines;
  bool m_started = false;

  bool m_up = false;
  bool m_was_up = false;
  bool m_told_to_wait = false;
  bool m_input_ended = false;
  std::int64_t m_requests = 0;
  std::int64_t m_packages = 0;
  FTTime m_down_since;     // the start, or when the link closed
  FTTime m_last_progress;  // the last request, or the end of the input
};
