#include "client/received_queue.h"

#include <cstring>

#include "00shcode/mytoolkit/buffer.h"

CReceivedQueue::~CReceivedQueue() {
  while (char* const entry = Pop()) ft::FreeBody(entry);
}

void CReceivedQueue::Push(const char* body, std::int32_t body_len) {
  const auto length = static_cast<std::uint32_t>(body_len);
  ft::FTBodyPtr entry(ft::AllocBody(sizeof length + length));
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
