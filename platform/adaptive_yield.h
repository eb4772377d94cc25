#pragma once

#include <cstdint>

namespace platform {

// What a thread does before it goes to sleep: it lets the others run and looks once more. What it
// waits for is often there by then, and nobody had to sleep or to be woken. Where other processes
// keep the core for long, most yields are left out. One thread at a time.
class AdaptiveYield {
 public:
  // True: the others had their turn, and another look is worth it.
  bool Try();

 private:
  static constexpr std::uint32_t kFewestSkipped = 64;
  static constexpr std::uint32_t kMostSkipped = 65536;

  std::uint32_t m_skip = 0;  // yields to be left out
  std::uint32_t m_next_skip = kFewestSkipped;
};

}  // namespace platform
