#pragma once

#include "00shcode/mytoolkit/annotations.h"
#include "platform/platform.h"

// Mutual exclusion, re-entrant: its holder may take it again and must release it as often.
class FT_LOCK_TYPE CFTLock {
 public:
  CFTLock() = default;
  CFTLock(const CFTLock&) = delete;
  CFTLock& operator=(const CFTLock&) = delete;

  void Lock() FT_ACQUIRE();  // blocks
  void Unlock() FT_RELEASE();

 private:
  platform::Mutex m_mutex;
};

// Holds a lock to the end of its scope; a null pointer holds nothing.
class FT_LOCK_SCOPE CFTScopedLock {
 public:
  explicit CFTScopedLock(CFTLock* lock) FT_ACQUIRE(lock);
  ~CFTScopedLock() FT_RELEASE();
  CFTScopedLock(const CFTScopedLock&) = delete;
  CFTScopedLock& operator=(const CFTScopedLock&) = delete;

 private:
  CFTLock* const m_lock;
};
