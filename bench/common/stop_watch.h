#pragma once

#include <chrono>

namespace bench {

// Runs from its construction on.
class StopWatch {
 public:
  using Clock = std::chrono::steady_clock;

  double GetMs() const {
    return std::chrono::duration<double, std::milli>(Clock::now() - m_begin).count();
  }

 private:
  const Clock::time_point m_begin = Clock::now();
};

}  // namespace bench
