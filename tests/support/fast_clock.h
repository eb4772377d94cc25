#pragma once

#include "tests/support/tick_pace.h"

namespace testkit {

// While it lives the library's tick clock runs so many times faster than real time. It never jumps.
// Waits of the library (500 ms for a socket, an event) stay real time: at 40 times the speed each
// of them is 20 seconds on the tick clock.
class FastClock : private TickPace {
 public:
  explicit FastClock(int factor) : TickPace(factor) {}
};

}  // namespace testkit
