#pragma once

#include <time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/message_window.h"
#include "platform/platform.h"
#include "platform/posix/futex_lock.h"

namespace platform {

// The messages of one window of our own. The object is never destroyed, so that a thread may keep a
// pointer to it; it serves one window after the other, and a call that names another window than
// the present one finds none.
//
// What is posted and what is taken lie in lists of their own, and the first becomes the second as a
// whole. So taking a message seldom meets the lock of those that post.
//
// Lock order: take lock, then post lock.
class WindowQueue {
 public:
  WindowQueue() = default;
  WindowQueue(const WindowQueue&) = delete;
  WindowQueue& operator=(const WindowQueue&) = delete;

  // Before the window's number is known to anybody. False when the system has no descriptor for it.
  bool Open(std::uint32_t window);

  // The following may be called from any thread.

  PostResult Post(std::uint32_t window, const WindowPost* posts, std::size_t count,
                  DiscardFunction discard);
  WindowWait Wait(std::uint32_t window, WindowMessage* message, int timeout_ms);
  int Descriptor(std::uint32_t window);

  // Discards what is queued, without needing memory, and makes the object ready for another window.
  void Close();

 private:
  struct Queued {
    WindowPost post;
    DiscardFunction discard;
  };

  class Guard {
   public:
    explicit Guard(FutexLock* lock) : m_lock(lock) { m_lock->Lock(); }
    ~Guard() { m_lock->Unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    FutexLock* const m_lock;
  };

  std::size_t Append(const WindowPost* posts, std::size_t count, DiscardFunction discard);
  WindowWait Take(std::uint32_t window, WindowMessage* message);
  bool WaitForArrival(std::uint32_t window, const timespec* deadline);
  std::size_t Count() const { return m_posted_count - m_taken_count; }
  void WakeWaiters(int count);
  static void Discard(const Queued& queued);
  void RefillTaken();
  void SignalDescriptor();
  void ClearDescriptor();

  // What posters and takers write lies apart, so that neither slows the other down.
  alignas(64) FutexLock m_take_lock;
  std::vector<Queued> m_taken;  // under the take lock
  std::size_t m_next = 0;       // likewise: in m_taken, the first message that nobody has
  std::atomic<std::size_t> m_taken_count{0};  // of all times, wraps; written under the take lock

  alignas(64) FutexLock m_post_lock;
  std::vector<Queued> m_posted;  // under the post lock, as all that follows
  int m_descriptor = -1;
  bool m_descriptor_used = false;
  std::atomic<std::size_t> m_posted_count{0};  // of all times, wraps; written under the post lock

  // Written under both locks; 0: no window.
  std::atomic<std::uint32_t> m_window{0};

  // Whoever posts looks for waiters afterwards, and a waiter counts itself before it looks for
  // messages: one of them sees the other. Waiters sleep until the number changes.
  alignas(64) std::atomic<std::uint32_t> m_waiters{0};
  std::atomic<std::uint32_t> m_wake_number{0};
};

}  // namespace platform
