#include "00shcode/ftmtsockimpl/recv_backlog.h"

void CFTRecvBacklog::Add(std::int64_t bytes) {
  const std::int64_t now = m_bytes += bytes;
  if (now <= m_wanted.load() && m_wanted.exchange(-1) >= 0) m_room.Wake();
}

// A wake-up that another reader clears costs no more than the time-out.
void CFTRecvBacklog::WaitForRoom(std::int64_t limit, std::int32_t timeout_ms,
                                 platform::Waker* waker) {
  m_room.Clear();
  std::int64_t wanted = m_wanted.load();
  while (wanted < limit / 2 && !m_wanted.compare_exchange_weak(wanted, limit / 2)) {
  }
  if (m_bytes.load() <= limit / 2) return;
  platform::WaitForSocket(m_room.Signal(), platform::Readiness::kReadable, timeout_ms, waker);
}
