#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

// The bytes that wait for the protocol object in event mode kByMessage, or are kept by it, and the
// readers that wait until these are fewer. Bytes that are no package yet do not count: their links
// could never complete them.
class CFTRecvBacklog {
 public:
  // The following may be called from any thread.

  std::int64_t GetBytes() const { return m_bytes.load(); }

  // Negative takes off.
  void Add(std::int64_t bytes);

  // A link's receive thread. Blocks until the backlog has fallen to half the limit, at most
  // timeout_ms, or until the link's waker is used.
  void WaitForRoom(std::int64_t limit, std::int32_t timeout_ms, platform::Waker* waker);

 private:
  std::atomic<std::int64_t> m_bytes{0};
  // The highest backlog at which a reader goes on; below 0: none waits. Whoever takes bytes off
  // looks here afterwards, and a reader looks at the bytes after it has written here: one of them
  // sees the other.
  std::atomic<std::int64_t> m_wanted{-1};
  platform::Waker m_room;
};
