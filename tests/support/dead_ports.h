// Ports of this machine on which no link comes about.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/socket_io.h"

namespace testkit {

// Refuses every connect. Nobody else gets the port while the object lives.
class ClosedPort {
 public:
  ClosedPort();

  const char* Host() const { return kLoopbackHost; }
  std::uint16_t Port() const { return m_port; }

 private:
  Descriptor m_socket;
  std::uint16_t m_port;
};

// Leaves every connect without an answer, as a host that is switched off does.
class FullBacklogPort {
 public:
  FullBacklogPort();

  const char* Host() const { return kLoopbackHost; }
  std::uint16_t Port() const { return m_port; }

 private:
  Descriptor m_socket;
  std::uint16_t m_port;
  std::vector<Descriptor> m_callers;  // have all the places, and are never accepted
};

}  // namespace testkit
