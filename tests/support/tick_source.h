#pragma once

#include <cstdint>

namespace testkit {

// The counter that stands in for the system's tick counter once a test has touched the clock; it
// stays in place until the process ends, so that the tick clock never seems to go back between two
// tests. FastClock and ManualClock are what tests use.
class TickSource {
 public:
  // Replaces the system's counter, at the same reading, when nobody did so yet.
  static void Install();

  // From now on this many milliseconds pass in one; 0 stops the clock. Returns the rate before.
  static int SetRate(int rate);
  // Jumps to a reading, backwards too.
  static void JumpTo(std::uint32_t milliseconds);
  static std::uint32_t Read();
};

}  // namespace testkit
