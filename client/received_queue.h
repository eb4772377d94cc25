#pragma once

#include <cstdint>
#include <deque>

#include "00shcode/mytoolkit/rw_lock.h"

// Bodies that arrived while no window was set, oldest first. An entry is an array: four bytes with
// the body's length in the host's order, then the body. Any thread.
class CReceivedQueue {
 public:
  CReceivedQueue() = default;
  ~CReceivedQueue();
  CReceivedQueue(const CReceivedQueue&) = delete;
  CReceivedQueue& operator=(const CReceivedQueue&) = delete;

  // Copies the body.
  void Push(const char* body, std::int32_t body_len);

  // The memory that all entries occupy.
  std::int64_t GetBytes();

  // The oldest entry, which the caller releases with ft::FreeBody; null when there is none.
  char* Pop();

 private:
  CFTRwLock m_lock;
  std::deque<char*> m_entries FT_GUARDED_BY(m_lock);
  std::int64_t m_bytes FT_GUARDED_BY(m_lock) = 0;
};
