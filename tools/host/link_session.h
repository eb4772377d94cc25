#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/clock.h"
#include "client/clientdatasource.h"
#include "tools/common/endpoint.h"
#include "tools/host/host_window.h"
#include "tools/host/line_source.h"
#include "tools/host/link_observer.h"

struct LinkOptions {
  std::vector<Endpoint> servers;  // 1 to 5
  std::int32_t answer_wait_sec = 2;
  std::int32_t connect_wait_sec = 30;
};

// A host: sends lines as requests and tells an observer what the library tells it. One per process.
class LinkSession {
 public:
  // Both must outlive the object.
  LinkSession(const LinkOptions& options, LineSource* lines, LinkObserver* observer);

  // Blocks until the lines have ended and their answers have come, until no link comes up, or until
  // an interrupt; ends the client. The exit status.
  int Run();

 private:
  void Link();
  void TellServer();
  void TakeNotifications(int wait_ms);
  void Handle(const Notification& notification);
  void HandleLinkEvent(std::intptr_t link_event);
  bool SendLines();  // true: more can go out at once
  std::optional<LinkEnd> FindEnd();
  bool IsLinkOverdue() const;
  std::optional<LinkEnd> FindEndOfAnswers() const;

  const LinkOptions m_options;
  LineSource* const m_lines;
  LinkObserver* const m_observer;
  CClientDataSource m_client;
  HostWindow m_window{&m_client};

  std::size_t m_turn = 0;  // of the servers
  bool m_up = false;
  bool m_was_up = false;
  bool m_told_to_wait = false;
  bool m_input_ended = false;
  std::int64_t m_requests = 0;
  std::int64_t m_packages = 0;
  FTTime m_down_since;     // the start, or when the link closed
  FTTime m_last_progress;  // the last request, or the end of the input
};
