#include "tests/support/client_window.h"

#include <gtest/gtest.h>

#include <utility>

#include "client/ftwindow.h"

namespace testkit {

void PrintTo(const Notification& notification, std::ostream* out) {
  if (notification.link_event != 0) {
    *out << "link event " << notification.link_event;
  } else {
    *out << "package of " << notification.body.size() << " bytes: " << HexDump(notification.body);
  }
}

ClientWindow::ClientWindow(CClientDataSource* client, unsigned int message)
    : m_client(client), m_message(message), m_handle(FTCreateWindow()) {
  EXPECT_NE(m_handle, 0U);
}

std::optional<Notification> ClientWindow::Next(std::chrono::milliseconds limit) {
  FTWindowMsg taken{};
  if (FTWaitMessage(m_handle, &taken, static_cast<int>(limit.count())) != 1) return std::nullopt;
  EXPECT_EQ(taken.window, m_handle);
  EXPECT_EQ(taken.message, m_message);
  if (taken.wParam == 0) return Notification{static_cast<int>(taken.lParam), {}};
  char* const body = reinterpret_cast<char*>(taken.wParam);
  Notification package = Package(Bytes(body, static_cast<std::size_t>(taken.lParam)));
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
  if (m_handle != 0) FTDestroyWindow(m_handle);
  m_handle = 0;
}

}  // namespace testkit
