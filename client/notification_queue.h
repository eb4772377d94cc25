#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/clock.h"
#include "client/received_queue.h"
#include "platform/platform.h"

// Notifications on their way to the application's window, oldest first: those of one cycle, which
// are posted together, and those that cannot be posted yet, because the window is full or the
// application has too many bodies. One thread.
class CNotificationQueue {
 public:
  CNotificationQueue() = default;
  // Releases the bodies.
  ~CNotificationQueue();
  CNotificationQueue(const CNotificationQueue&) = delete;
  CNotificationQueue& operator=(const CNotificationQueue&) = delete;

  void AddBody(ft::FTBodyPtr body, std::int32_t body_len);
  void AddLinkEvent(std::intptr_t link_event);

  bool IsEmpty() const { return m_next == m_posts.size(); }

  // True once so many were added since the last post that they are to be posted.
  bool IsBatchFull() const;

  // The memory that all of them occupy.
  std::int64_t GetBytes() const { return m_bytes; }

  // Posts what can be posted now. Discards everything when there is no such window. True when
  // anything has left the queue.
  bool PostTo(std::uint32_t window, std::uint32_t message);

  // Moves the bodies to the other queue and drops the link events.
  void MoveTo(CReceivedQueue* received);

 private:
  void Add(const platform::WindowPost& post);
  std::size_t CountPostable();
  bool IsTimeForOneMore(std::int64_t with_application);
  void Remove(std::size_t count);
  void ReleaseAll();

  std::vector<platform::WindowPost> m_posts;  // the message is filled in when one is posted
  std::size_t m_next = 0;                     // what lies before has been posted
  std::int64_t m_bytes = 0;
  std::int64_t m_counted_bytes = 0;  // of those bodies that CountedBodyBytes counts

  // Since the last post.
  std::size_t m_added = 0;
  std::int64_t m_added_bytes = 0;

  // What the application had when it had too much, and when that changed or it got one more.
  std::int64_t m_with_application = 0;
  FTTime m_unchanged_since;
};
