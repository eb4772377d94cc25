#include "platform/posix/futex_lock.h"

#include "platform/posix/futex.h"

namespace platform {

// Whoever comes here may be one of several, and so leaves the lock marked as awaited.
void FutexLock::LockHeld() {
  while (m_state.exchange(kAwaited, std::memory_order_acquire) != kFree) {
    FutexWait(m_state, kAwaited, nullptr);
  }
}

void FutexLock::WakeOne() {
  FutexWake(m_state, 1);
}

}  // namespace platform
