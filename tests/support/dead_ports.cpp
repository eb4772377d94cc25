#include "tests/support/dead_ports.h"

#include <chrono>
#include <stdexcept>

namespace testkit {

namespace {

constexpr int kMostCallers = 10;
// A connect within this machine that has not come about by now finds the backlog full.
constexpr std::chrono::milliseconds kNoAnswer{500};

}  // namespace

FullBacklogPort::FullBacklogPort() {
  StartListening(m_socket, 0);
  for (int i = 0; i < kMostCallers; ++i) {
    m_callers.push_back(OpenSocket());
    if (!ConnectTo(m_callers.back(), Port(), Deadline(kNoAnswer))) return;
  }
  throw std::runtime_error("the backlog takes every caller");
}

}  // namespace testkit
