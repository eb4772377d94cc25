#include "client/received_queue.h"

#include <cstring>
#include <memory>

CReceivedQueue::~CReceivedQueue() {
  while (char* const entry = Pop()) delete[] entry;
}

void CReceivedQueue::Push(const char* body, std::int32_t body_len) {
  const auto length = static_cast<std::uint32_t>(body_len);
  std::unique_ptr<char[]> entry(new char[sizeof length + length]);
  std::memcpy(entry.get(), &length, sizeof length);
  std::memcpy(entry.get() + sizeof length, body, length);
  const CFTAutoLock guard(&m_lock, CFTRwLock::kWrite);
  m_entries.push_back(entry.get());
  entry.release();
}

char* CReceivedQueue::Pop() {
  const CFTAutoLock guard(&m_lock, CFTRwLock::kWrite);
  if (m_entries.empty()) return nullptr;
  char* const entry = m_entries.front();
  m_entries.pop_front();
  return entry;
}
