#pragma once

#include "tests/support/clock.h"

namespace campaign {

// The machine under the client. Its calls are made to fail on Linux alone.
struct Machine {
  // For each millisecond that brings nothing; waits for a socket last half a second of them.
  static constexpr std::uint32_t kTicksWhileIdle = 50;

  void EndFaults() {}
  bool LacksThreads() const { return false; }

  testkit::ManualClock clock;
};

inline std::size_t HeapBytes() {
  return 0;
}
inline std::size_t ResidentBytes() {
  return 0;
}

}  // namespace campaign
