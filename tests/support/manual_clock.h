#pragma once

#include <cstdint>

#include "tests/support/tick_source.h"

namespace testkit {

// While it lives the library's tick counter stands still and shows what the test sets; afterwards
// it goes on from there at its usual pace. Setting it back looks like a wrap to the library.
class ManualClock {
 public:
  ManualClock() {
    TickSource::Install();
    m_rate_before = TickSource::SetRate(0);
  }
  ~ManualClock() { TickSource::SetRate(m_rate_before); }
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  void Set(std::uint32_t milliseconds) { TickSource::JumpTo(milliseconds); }
  void Advance(std::uint32_t milliseconds) { TickSource::JumpTo(Reading() + milliseconds); }
  std::uint32_t Reading() const { return TickSource::Read(); }

 private:
  int m_rate_before;
};

}  // namespace testkit
