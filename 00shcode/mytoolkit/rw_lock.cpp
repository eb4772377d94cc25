#include "00shcode/mytoolkit/rw_lock.h"

std::int32_t CFTRwLock::Lock(std::int32_t /*mode*/) FT_UNCHECKED {
  m_lock.Lock();
  return 0;
}

void CFTRwLock::Unlock() FT_UNCHECKED {
  m_lock.Unlock();
}

CFTAutoLock::CFTAutoLock(CFTRwLock* lock, std::int32_t mode) FT_UNCHECKED : m_lock(lock) {
  if (m_lock != nullptr) m_locked = m_lock->Lock(mode) == 0;
}

CFTAutoLock::~CFTAutoLock() FT_UNCHECKED {
  if (m_locked) m_lock->Unlock();
}
