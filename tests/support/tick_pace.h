#pragma once

#include <cstdint>

namespace testkit {

// While it lives the library's tick clock has a pace of its own; afterwards it goes on from there
// at its usual pace. FastClock and ManualClock are what tests use.
//
// The counter that stands in for the system's stays in place until the process ends, so that the
// clock never seems to go back between two tests.
class TickPace {
 public:
  TickPace(const TickPace&) = delete;
  TickPace& operator=(const TickPace&) = delete;

 protected:
  // So many milliseconds pass in one; 0 stops the clock.
  explicit TickPace(int rate);
  ~TickPace();

  // To another reading, backwards too.
  static void JumpTo(std::uint32_t milliseconds);
  static std::uint32_t Reading();

 private:
  int m_rate_before;
};

}  // namespace testkit
