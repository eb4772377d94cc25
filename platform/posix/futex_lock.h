#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

// A lock for the road that every package takes: free, it costs one instruction each way, and no
// call. Not re-entrant.
class FutexLock {
 public:
  FutexLock() = default;
  FutexLock(const FutexLock&) = delete;
  FutexLock& operator=(const FutexLock&) = delete;

  void Lock() {
    std::uint32_t state = kFree;
    if (!m_state.compare_exchange_strong(state, kHeld, std::memory_order_acquire)) LockHeld();
  }
  void Unlock() {
    if (m_state.exchange(kFree, std::memory_order_release) == kAwaited) WakeOne();
  }

 private:
  static constexpr std::uint32_t kFree = 0;
  static constexpr std::uint32_t kHeld = 1;
  static constexpr std::uint32_t kAwaited = 2;  // held, and somebody may sleep

  void LockHeld();
  void WakeOne();

  std::atomic<std::uint32_t> m_state{kFree};
};

}  // namespace platform
