#pragma once

#include <atomic>
#include <cstdint>

#include "tests/support/hooks.h"

namespace testkit {

// While it lives the wall clock of this process can be set forward and back; the monotonic clock,
// and with it every wait, is not touched.
class WallClockShift {
 public:
  WallClockShift() { LinkHooks(); }
  ~WallClockShift() { s_seconds = 0; }
  WallClockShift(const WallClockShift&) = delete;
  WallClockShift& operator=(const WallClockShift&) = delete;

  void Advance(std::int64_t seconds) { s_seconds += seconds; }  // negative: back

  static std::int64_t Seconds() { return s_seconds; }  // for the hook

 private:
  static inline std::atomic<std::int64_t> s_seconds{0};
};

}  // namespace testkit
