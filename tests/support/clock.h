#pragma once

#include <chrono>
#include <mutex>

#include "platform/platform.h"

namespace testkit {

// While one lives the library's tick clock runs so many times faster than real time; afterwards it
// goes on from there at the pace before. Waits of the library (500 ms for a socket, an event) stay
// real time: at 40 times the speed each of them is 20 seconds on the tick clock.
class FastClock {
 public:
  explicit FastClock(int rate) {
    platform::SetTickCounter(&Reading);
    m_rate_before = SetRate(rate);
  }
  ~FastClock() { SetRate(m_rate_before); }

  void Advance(std::uint32_t milliseconds) {
    const Guard guard(s_lock);
    s_shown += std::chrono::milliseconds(milliseconds);
  }

 private:
  using Clock = std::chrono::steady_clock;
  using Guard = std::lock_guard<std::mutex>;

  static std::uint32_t Reading() {
    const Guard guard(s_lock);
    return static_cast<std::uint32_t>(ShownNow() / std::chrono::milliseconds(1));
  }
  static int SetRate(int rate) {
    const Guard guard(s_lock);
    s_shown = ShownNow();
    s_anchor = Clock::now();
    return std::exchange(s_rate, rate);
  }
  static Clock::duration ShownNow() { return s_shown + (Clock::now() - s_anchor) * s_rate; }

  static inline std::mutex s_lock;  // guards what follows
  static inline int s_rate = 1;
  static inline Clock::time_point s_anchor = Clock::now();
  // The system's counter may be just before its next millisecond, and must not be ahead.
  static inline Clock::duration s_shown = std::chrono::milliseconds(platform::TickCount() + 1);

  int m_rate_before;
};

// Stands still unless the test lets the time pass.
struct ManualClock : FastClock {
  ManualClock() : FastClock(0) {}
};

}  // namespace testkit
