#pragma once

#include <cstdint>

#include "00shcode/mytoolkit/lock.h"
#include "platform/platform.h"

// Auto-reset: a signal that nobody waits for stays pending, at most one, until a wait consumes it.
class CFTEvent {
 public:
  CFTEvent() = default;
  CFTEvent(const CFTEvent&) = delete;
  CFTEvent& operator=(const CFTEvent&) = delete;

  // Any thread. True when the platform took the signal.
  bool Set();

  // Releases the lock, blocks until a signal or for timeout_ms milliseconds (0xFFFFFFFF: without
  // limit), takes the lock again. 1: the time ran out; 0: signalled.
  std::int32_t WaitUnlocked(CFTLock* lock, std::uint32_t timeout_ms) FT_REQUIRES(lock);

 private:
  platform::Event m_event;
};
