#include "00shcode/mytoolkit/event.h"

bool CFTEvent::Set() {
  return m_event.Set();
}

std::int32_t CFTEvent::WaitUnlocked(CFTLock* lock, std::uint32_t timeout_ms) {
  lock->Unlock();
  const bool signalled = m_event.Wait(timeout_ms);
  lock->Lock();
  return signalled ? 0 : 1;
}
