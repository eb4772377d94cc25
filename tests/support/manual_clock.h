#pragma once

#include <cstdint>

#include "tests/support/tick_pace.h"

namespace testkit {

// While it lives the library's tick counter stands still and shows what the test sets. Setting it
// back looks like a wrap to the library.
class ManualClock : private TickPace {
 public:
  ManualClock() : TickPace(0) {}

  void Set(std::uint32_t milliseconds) { JumpTo(milliseconds); }
  void Advance(std::uint32_t milliseconds) { JumpTo(Reading() + milliseconds); }
};

}  // namespace testkit
