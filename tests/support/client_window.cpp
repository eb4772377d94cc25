#include "tests/support/client_window.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/support/test_window.h"

namespace testkit {

bool operator==(const Notification& a, const Notification& b) {
  return a.link_event == b.link_event && a.body == b.body;
}

bool operator!=(const Notification& a, const Notification& b) {
  return !(a == b);
}

void PrintTo(const Notification& notification, std::ostream* out) {
  if (notification.link_event != 0) {
    *out << "link event " << notification.link_event;
  } else {
    *out << "package of " << notification.body.size() << " bytes: " << HexDump(notification.body);
  }
}

Notification LinkUp() {
  return {LINK_EVENT_UP, {}};
}

Notification ConnectFailed() {
  return {LINK_EVENT_CONNECT_FAILED, {}};
}

Notification LinkClosed() {
  return {LINK_EVENT_CLOSED, {}};
}

Notification Package(Bytes body) {
  return {0, std::move(body)};
}

ClientWindow::ClientWindow(CClientDataSource* client, unsigned int message)
    : m_client(client), m_message(message), m_handle(CreateTestWindow()) {
  EXPECT_NE(m_handle, 0U);
}

std::optional<Notification> ClientWindow::Next(std::chrono::milliseconds limit) {
  const auto taken = TakeTestMessage(m_handle, limit);
  if (!taken) return std::nullopt;
  EXPECT_EQ(taken->window, m_handle);
  EXPECT_EQ(taken->message, m_message);
  if (taken->w_param == 0) return Notification{static_cast<int>(taken->l_param), {}};
  char* const body = reinterpret_cast<char*>(taken->w_param);
  Notification package = Package(Bytes(body, static_cast<std::size_t>(taken->l_param)));
  m_client->FreeBuffer(body);
  return package;
}

bool ClientWindow::WaitFor(const Notification& last, std::chrono::milliseconds limit) {
  while (const auto next = Next(limit)) {
    if (*next == last) return true;
  }
  return false;
}

void ClientWindow::Drain() {
  while (Next(std::chrono::milliseconds(0))) {
  }
}

void ClientWindow::Destroy() {
  if (m_handle != 0) DestroyTestWindow(m_handle);
  m_handle = 0;
}

}  // namespace testkit
