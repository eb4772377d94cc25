#pragma once

#include <optional>

#include "client/clientdatasource.h"
#include "tools/host/notification.h"

// A window of this process, for as long as the object lives, with the library's notifications
// taken out of their messages. One thread.
class HostWindow {
 public:
  // The client, which must outlive the object, releases the bodies that were taken.
  // Throws std::runtime_error when the system makes no window.
  explicit HostWindow(CClientDataSource* client);
  ~HostWindow();  // with the notifications that nobody took
  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;

  // What the client is to post to.
  unsigned int Window() const { return m_window; }
  unsigned int MessageNumber() const { return kMessage; }

  // The next notification; empty after wait_ms milliseconds without one.
  std::optional<Notification> Wait(int wait_ms);

 private:
  static constexpr unsigned int kMessage = 0x8000;  // the first that no system uses itself

  CClientDataSource* const m_client;
  const unsigned int m_window;
};
