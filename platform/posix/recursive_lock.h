#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "platform/posix/futex_lock.h"

namespace platform {

// A re-entrant lock: its holder may take it again and must release it as often.
class RecursiveLock {
 public:
  void Lock() {
    const pthread_t self = pthread_self();
    // Equal only if this thread wrote it, so no order matters.
    if (m_owner.load(std::memory_order_relaxed) == self) {
      ++m_depth;
      return;
    }
    m_lock.Lock();
    m_owner.store(self, std::memory_order_relaxed);
  }
  void Unlock() {
    if (m_depth > 0) {
      --m_depth;
      return;
    }
    m_owner.store(pthread_t{}, std::memory_order_relaxed);
    m_lock.Unlock();
  }

 private:
  FutexLock m_lock;
  std::uint32_t m_depth = 0;  // the holder's; of the locks that follow its first
  std::atomic<pthread_t> m_owner{pthread_t{}};
};

}  // namespace platform
