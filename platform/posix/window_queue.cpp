#include "platform/posix/window_queue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "platform/adaptive_yield.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/futex.h"
#include "platform/posix/monotonic.h"

namespace platform {

namespace {

thread_local AdaptiveYield t_yield;

}  // namespace

bool WindowQueue::Open(std::uint32_t window) {
  const Guard take_guard(&m_take_lock);
  const Guard post_guard(&m_post_lock);
  m_descriptor = AboveStandardStreams(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (m_descriptor < 0) return false;
  m_descriptor_used = false;
  m_window = window;
  return true;
}

PostResult WindowQueue::Post(std::uint32_t window, const WindowPost* posts, std::size_t count,
                             DiscardFunction discard) {
  std::size_t posted = 0;
  {
    const Guard guard(&m_post_lock);
    if (m_window != window) return {0, WindowState::kGone};
    posted = Append(posts, count, discard);
  }
  if (posted > 0) WakeWaiters(posted == 1 ? 1 : INT_MAX);
  return {posted, posted == count ? WindowState::kOpen : WindowState::kFull};
}

// As many as there is room for. More room may come meanwhile.
std::size_t WindowQueue::Append(const WindowPost* posts, std::size_t count,
                                DiscardFunction discard) {
  count = std::min(count, kWindowCapacity - Count());
  if (count == 0) return 0;
  const bool first = m_posted.empty();
  for (std::size_t i = 0; i < count; ++i) m_posted.push_back({posts[i], discard});
  m_posted_count += count;
  if (first) SignalDescriptor();
  return count;
}

void WindowQueue::WakeWaiters(int count) {
  if (m_waiters == 0) return;
  ++m_wake_number;
  FutexWake(m_wake_number, count);
}

WindowWait WindowQueue::Wait(std::uint32_t window, WindowMessage* message, int timeout_ms) {
  WindowWait result = Take(window, message);
  if (result != WindowWait::kTimeOut || timeout_ms == 0) return result;
  if (t_yield.Try() && (result = Take(window, message)) != WindowWait::kTimeOut) return result;
  const timespec deadline = MonotonicDeadline(static_cast<std::uint32_t>(std::max(timeout_ms, 0)));
  do {
    const bool arrived = WaitForArrival(window, timeout_ms < 0 ? nullptr : &deadline);
    result = Take(window, message);
    if (!arrived) break;
  } while (result == WindowWait::kTimeOut);  // another thread was faster
  return result;
}

WindowWait WindowQueue::Take(std::uint32_t window, WindowMessage* message) {
  const Guard guard(&m_take_lock);
  if (m_window != window) return WindowWait::kNoWindow;
  if (Count() == 0) return WindowWait::kTimeOut;
  if (m_next == m_taken.size()) RefillTaken();
  const WindowPost& post = m_taken[m_next++].post;
  *message = {window, post.message, post.w_param, post.l_param};
  m_taken_count.store(m_taken_count + 1, std::memory_order_release);
  if (m_next == m_taken.size()) RefillTaken();
  return WindowWait::kTaken;
}

// The descriptor is readable while there is something in either list.
void WindowQueue::RefillTaken() {
  const Guard guard(&m_post_lock);
  m_taken.clear();
  m_next = 0;
  m_taken.swap(m_posted);
  if (m_taken.empty()) ClearDescriptor();
}

// False when the deadline passed.
bool WindowQueue::WaitForArrival(std::uint32_t window, const timespec* deadline) {
  ++m_waiters;
  bool in_time = true;
  while (in_time) {
    const std::uint32_t number = m_wake_number;
    if (Count() != 0 || m_window != window) break;
    in_time = FutexWait(m_wake_number, number, deadline);
  }
  --m_waiters;
  return in_time;
}

int WindowQueue::Descriptor(std::uint32_t window) {
  const Guard guard(&m_post_lock);
  if (m_window != window) return -1;
  if (!std::exchange(m_descriptor_used, true) && Count() > 0) SignalDescriptor();
  return m_descriptor;
}

void WindowQueue::Close() {
  std::vector<Queued> taken;
  std::vector<Queued> posted;
  std::size_t next = 0;
  {
    const Guard take_guard(&m_take_lock);
    const Guard post_guard(&m_post_lock);
    m_window = 0;
    taken.swap(m_taken);
    posted.swap(m_posted);
    next = std::exchange(m_next, 0);
    m_taken_count.store(m_posted_count);
    SignalDescriptor();  // who polls it sees that something happened
    close(std::exchange(m_descriptor, -1));
  }
  WakeWaiters(INT_MAX);
  for (; next < taken.size(); ++next) Discard(taken[next]);
  for (const Queued& queued : posted) Discard(queued);
}

void WindowQueue::Discard(const Queued& queued) {
  if (queued.discard != nullptr) queued.discard(queued.post.w_param);
}

// A window that nobody polls costs no system calls.
void WindowQueue::SignalDescriptor() {
  if (m_descriptor_used) eventfd_write(m_descriptor, 1);
}

void WindowQueue::ClearDescriptor() {
  eventfd_t count = 0;
  if (m_descriptor_used) eventfd_read(m_descriptor, &count);
}

}  // namespace platform
