#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/clientdatasource.h"

// What the library tells its host: a package or a link event.
struct Notification {
  std::intptr_t link_event = 0;  // one of FTLinkEvent; 0: a package
  std::string body;

  bool IsPackage() const { return link_event == 0; }
};

// The name of a link event.
std::string ShowLinkEvent(std::intptr_t link_event);

// A window of this process, for as long as the object lives, with the library's notifications
// taken out of their messages. One thread.
class HostWindow {
 public:
  // The client, which must outlive the object, releases the bodies that were taken.
  // Throws std::runtime_error when the system makes no window.
  explicit HostWindow(CClientDataSource* client);
  ~HostWindow();
  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;

  // What the client is to post to.
  unsigned int GetWindow() const { return m_window; }
  unsigned int GetMessage() const { return kMessage; }

  // The next notification; empty after wait_ms milliseconds without one.
  std::optional<Notification> Wait(int wait_ms);

 private:
  static constexpr unsigned int kMessage = 1;

  CClientDataSource* const m_client;
  const unsigned int m_window;
};
