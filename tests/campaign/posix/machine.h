#pragma once

#include "tests/support/clock.h"
#include "tests/support/posix/faults.h"

namespace campaign {

// A pipe in the place of standard error, which nobody reads.
class DeafStderr {
 public:
  DeafStderr();
  ~DeafStderr();

 private:
  const int m_original;
  int m_ends[2] = {-1, -1};
};

// The machine under the client: its tick clock and its faults.
struct Machine {
  // For each millisecond that brings nothing.
  static constexpr std::uint32_t kTicksWhileIdle = 500;

  Machine() { EndFaults(); }
  void EndFaults();
  bool LacksThreads() const { return threads.has_value(); }

  testkit::ManualClock clock;
  testkit::ClockShift wall;  // goes on after a fault
  std::optional<testkit::SocketFaults> calls;
  std::optional<testkit::DescriptorLimit> descriptors;
  std::optional<testkit::ThreadLimit> threads;
  std::optional<DeafStderr> deaf_stderr;
};

std::size_t HeapBytes();
std::size_t ResidentBytes();

}  // namespace campaign
