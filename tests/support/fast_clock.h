#pragma once

#include "tests/support/tick_source.h"

namespace testkit {

// While it lives the library's tick clock runs so many times faster than real time; afterwards it
// goes on from there at its usual pace. It never jumps. Waits of the library (500 ms for a socket,
// an event) stay real time: at 40 times the speed each of them is 20 seconds on the tick clock.
class FastClock {
 public:
  explicit FastClock(int factor) {
    TickSource::Install();
    m_rate_before = TickSource::SetRate(factor);
  }
  ~FastClock() { TickSource::SetRate(m_rate_before); }
  FastClock(const FastClock&) = delete;
  FastClock& operator=(const FastClock&) = delete;

 private:
  int m_rate_before;
};

}  // namespace testkit
