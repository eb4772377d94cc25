#include "client/received_queue.h"

#include <cstring>

#include "00shcode/mytoolkit/buffer.h"

namespace {

std::int64_t BytesOf(const char* entry) {
  std::uint32_t body_len = 0;
  std::memcpy(&body_len, entry, sizeof body_len);
  return std::int64_t{body_len} + ft::kBlockCost;
}

}  // namespace

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
  m_bytes += BytesOf(entry.release());
}

char* CReceivedQueue::Pop() {
  const CFTAutoLock guard(&m_lock, CFTRwLock::kWrite);
  if (m_entries.empty()) return nullptr;
  char* const entry = m_entries.front();
  m_entries.pop_front();
  m_bytes -= BytesOf(entry);
  return entry;
}

std::int64_t CReceivedQueue::GetBytes() {
  const CFTAutoLock guard(&m_lock, CFTRwLock::kRead);
  return m_bytes;
}
