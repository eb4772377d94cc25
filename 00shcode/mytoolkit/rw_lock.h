#pragma once

#include <cstdint>

#include "00shcode/mytoolkit/lock.h"

// A lock whose two modes are both exclusive: a reader shuts out other readers too.
class FT_LOCK_TYPE CFTRwLock {
 public:
  static constexpr std::int32_t kRead = 1;
  static constexpr std::int32_t kWrite = 2;

  CFTRwLock() = default;
  virtual ~CFTRwLock() = default;
  CFTRwLock(const CFTRwLock&) = delete;
  CFTRwLock& operator=(const CFTRwLock&) = delete;

  // Blocks. 0: held, to be released once. Anything else would mean: not held; it does not occur.
  std::int32_t Lock(std::int32_t mode) FT_TRY_ACQUIRE(0);
  void Unlock() FT_RELEASE();

 private:
  CFTLock m_lock;
};

// Holds a CFTRwLock to the end of its scope; a null pointer holds nothing.
class FT_LOCK_SCOPE CFTAutoLock {
 public:
  CFTAutoLock(CFTRwLock* lock, std::int32_t mode) FT_ACQUIRE(lock);
  ~CFTAutoLock() FT_RELEASE();
  CFTAutoLock(const CFTAutoLock&) = delete;
  CFTAutoLock& operator=(const CFTAutoLock&) = delete;

 private:
  bool m_locked = false;
  CFTRwLock* const m_lock;
};
