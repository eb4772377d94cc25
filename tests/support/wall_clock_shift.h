#pragma once

#include <cstdint>

namespace testkit {

// While it lives the wall clock of this process can be set forward and back; the monotonic clock,
// and with it every wait, is not touched.
class WallClockShift {
 public:
  WallClockShift() = default;
  ~WallClockShift();
  WallClockShift(const WallClockShift&) = delete;
  WallClockShift& operator=(const WallClockShift&) = delete;

  void Advance(std::int64_t seconds);  // negative: back
};

}  // namespace testkit
