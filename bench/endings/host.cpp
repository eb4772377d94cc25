#include "bench/endings/host.h"

#include <stdexcept>
#include <string>

#include "bench/versus/socket.h"
#include "client/ftwindow.h"

namespace endings {

void Host::Link(std::uint16_t port) {
  m_source.Link("127.0.0.1", port, "", 0, "", 0, "", 0, "", 0, m_window.Get(), 1);
}

void Host::AwaitLinkEvent(int link_event) {
  FTWindowMsg msg{};
  for (;;) {
    if (FTWaitMessage(m_window.Get(), &msg, versus::kPatienceMs) != 1) {
      throw std::runtime_error("no link event " + std::to_string(link_event));
    }
    if (msg.wParam == 0) break;
    m_source.FreeBuffer(reinterpret_cast<char*>(msg.wParam));
  }
  if (msg.lParam != link_event) {
    throw std::runtime_error("link event " + std::to_string(msg.lParam) + " instead of " +
                             std::to_string(link_event));
  }
}

bool Host::Ask(const std::vector<char>& body) {
  return m_source.AskData(body.data(), static_cast<unsigned int>(body.size())) == 0;
}

bool Host::TakeBody(int wait_ms) {
  FTWindowMsg msg{};
  if (FTWaitMessage(m_window.Get(), &msg, wait_ms) != 1) return false;
  if (msg.wParam == 0) {
    throw std::runtime_error("unexpected link event " + std::to_string(msg.lParam));
  }
  m_source.FreeBuffer(reinterpret_cast<char*>(msg.wParam));
  return true;
}

}  // namespace endings
