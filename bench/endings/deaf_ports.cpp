#include "bench/endings/deaf_ports.h"

#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace endings {

namespace {

// With a backlog of 0 the system lets one connect in.
versus::Socket ListenForOne() {
  versus::Socket listener = versus::Socket::Bind();
  if (listen(listener.Get(), 0) != 0) {
    throw std::system_error(errno, std::generic_category(), "listen");
  }
  return listener;
}

}  // namespace

SilentPort::SilentPort()
    : m_listener(ListenForOne()), m_waiting(versus::Socket::Connect(m_listener.GetPort())) {}

}  // namespace endings
