#pragma once

#include <chrono>
#include <optional>
#include <ostream>
#include <utility>

#include "client/clientdatasource.h"
#include "tests/support/wire.h"

namespace testkit {

// What a window is told: a package, or a link event.
struct Notification {
  int link_event = 0;  // one of FTLinkEvent; 0: a package
  Bytes body;

  bool operator==(const Notification& other) const {
    return link_event == other.link_event && body == other.body;
  }
  bool operator!=(const Notification& other) const { return !(*this == other); }
};

void PrintTo(const Notification& notification, std::ostream* out);

inline Notification LinkUp() {
  return {LINK_EVENT_UP, {}};
}
inline Notification ConnectFailed() {
  return {LINK_EVENT_CONNECT_FAILED, {}};
}
inline Notification LinkClosed() {
  return {LINK_EVENT_CLOSED, {}};
}
inline Notification Package(Bytes body) {
  return {0, std::move(body)};
}

// A window of the test. It returns every body to the client's FreeBuffer, and fails the test when
// a message does not carry the window's number or the message number that it was made for.
class ClientWindow {
 public:
  explicit ClientWindow(CClientDataSource* client, unsigned int message = 0x0401);
  ~ClientWindow() { Destroy(); }
  ClientWindow(const ClientWindow&) = delete;
  ClientWindow& operator=(const ClientWindow&) = delete;

  unsigned int Handle() const { return m_handle; }
  unsigned int Message() const { return m_message; }

  // Waits for the next notification and takes it; nothing when none comes within the limit.
  std::optional<Notification> Next(std::chrono::milliseconds limit);
  // Takes what comes until this one has come; false when the limit passes without anything.
  bool WaitFor(const Notification& last, std::chrono::milliseconds limit);
  // Takes what waits now.
  void Drain();

  void Destroy();

 private:
  CClientDataSource* const m_client;
  const unsigned int m_message;
  unsigned int m_handle;
};

}  // namespace testkit
