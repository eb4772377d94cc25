#include "tools/host/host_window.h"

#include <stdexcept>

#include "client/ftwindow.h"

HostWindow::HostWindow(CClientDataSource* client) : m_client(client), m_window(FTCreateWindow()) {
  if (m_window == 0) throw std::runtime_error("the system makes no window");
}

HostWindow::~HostWindow() {
  while (Wait(0)) {
  }
  FTDestroyWindow(m_window);
}

std::optional<Notification> HostWindow::Wait(int wait_ms) {
  FTWindowMsg msg{};
  if (FTWaitMessage(m_window, &msg, wait_ms) != 1) return {};
  return TakeNotification(m_client, msg.wParam, msg.lParam);
}
