#pragma once

#include <chrono>
#include <mutex>

#include "platform/platform.h"

namespace testkit {

// While one of these lives the library's tick clock has a pace of its own; afterwards it goes on
// from there at the pace before. It never jumps by itself: our counter stays in place.
class TickPace {
 public:
  // So many milliseconds pass in one; 0 stops the clock.
  explicit TickPace(int rate) {
    platform::SetTickCounter(&Reading);
    m_rate_before = SetRate(rate);
  }
  ~TickPace() { SetRate(m_rate_before); }

  // Setting it back looks like a wrap to the library.
  void Set(std::uint32_t milliseconds) {
    const Guard guard(s_lock);
    Anchor(std::chrono::milliseconds(milliseconds));
  }
  void Advance(std::uint32_t milliseconds) { Set(Reading() + milliseconds); }

 private:
  using Clock = std::chrono::steady_clock;
  using Guard = std::lock_guard<std::mutex>;

  static std::uint32_t Reading() {
    const Guard guard(s_lock);
    return static_cast<std::uint32_t>(ShownNow() / std::chrono::milliseconds(1));
  }
  static int SetRate(int rate) {
    const Guard guard(s_lock);
    Anchor(ShownNow());
    return std::exchange(s_rate, rate);
  }
  static Clock::duration ShownNow() { return s_shown + (Clock::now() - s_anchor) * s_rate; }
  static void Anchor(Clock::duration shown) {
    s_shown = shown;
    s_anchor = Clock::now();
  }

  static inline std::mutex s_lock;  // guards what follows
  static inline int s_rate = 1;
  static inline Clock::time_point s_anchor = Clock::now();
  // The system's counter may be just before its next millisecond, and must not be ahead.
  static inline Clock::duration s_shown = std::chrono::milliseconds(platform::TickCount() + 1);

  int m_rate_before;
};

// So many times faster than real time. Waits of the library (500 ms for a socket, an event) stay
// real time: at 40 times the speed each of them is 20 seconds on the tick clock.
class FastClock : TickPace {
 public:
  using TickPace::TickPace;
};

// Stands still and shows what the test sets.
class ManualClock : public TickPace {
 public:
  ManualClock() : TickPace(0) {}
};

}  // namespace testkit
