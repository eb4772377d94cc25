#include "tests/support/dead_ports.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>

#include "tests/support/wait_until.h"

namespace testkit {

namespace {

constexpr std::chrono::seconds kSetUpLimit{5};

// For a listening socket these two fields hold the length of its backlog and the limit of it.
bool IsBacklogFull(const Descriptor& listening) {
  tcp_info info{};
  socklen_t length = sizeof info;
  if (getsockopt(listening.Get(), IPPROTO_TCP, TCP_INFO, &info, &length) != 0) {
    ThrowSystemError("getsockopt");
  }
  return info.tcpi_unacked > info.tcpi_sacked;
}

}  // namespace

FullBacklogPort::FullBacklogPort() : m_socket(OpenBoundSocket()), m_port(LocalPort(m_socket)) {
  StartListening(m_socket, 0);
  m_callers.push_back(OpenSocket());
  const bool filled = ConnectTo(m_callers[0], m_port, Deadline(kSetUpLimit)) &&
                      WaitUntil([this] { return IsBacklogFull(m_socket); }, kSetUpLimit);
  if (!filled) throw std::runtime_error("one caller does not fill a backlog of length 0");
}

}  // namespace testkit
