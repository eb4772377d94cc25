#include "00shcode/mytoolkit/lock.h"

void CFTLock::Lock() FT_UNCHECKED {
  m_mutex.Lock();
}

void CFTLock::Unlock() FT_UNCHECKED {
  m_mutex.Unlock();
}

CFTScopedLock::CFTScopedLock(CFTLock* lock) FT_UNCHECKED : m_lock(lock) {
  if (m_lock != nullptr) m_lock->Lock();
}

CFTScopedLock::~CFTScopedLock() FT_UNCHECKED {
  if (m_lock != nullptr) m_lock->Unlock();
}
