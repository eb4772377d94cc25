#include "tools/host_window.h"

#include <stdexcept>

#include "client/ftwindow.h"

std::string ShowLinkEvent(std::intptr_t link_event) {
  switch (link_event) {
    case LINK_EVENT_UP:
      return "LINK_EVENT_UP";
    case LINK_EVENT_CONNECT_FAILED:
      return "LINK_EVENT_CONNECT_FAILED";
    case LINK_EVENT_CLOSED:
      return "LINK_EVENT_CLOSED";
    default:
      return "link event " + std::to_string(link_event);
  }
}

HostWindow::HostWindow(CClientDataSource* client) : m_client(client), m_window(FTCreateWindow()) {
  if (m_window == 0) throw std::runtime_error("the system makes no window");
}

HostWindow::~HostWindow() {
  FTDestroyWindow(m_window);
}

std::optional<Notification> HostWindow::Wait(int wait_ms) {
  FTWindowMsg msg{};
  if (FTWaitMessage(m_window, &msg, wait_ms) != 1) return {};
  if (msg.wParam == 0) return Notification{msg.lParam, {}};
  auto* const body = reinterpret_cast<char*>(msg.wParam);
  Notification package{0, std::string(body, static_cast<std::size_t>(msg.lParam))};
  m_client->FreeBuffer(body);
  return package;
}
