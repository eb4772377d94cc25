#include "client/notification_queue.h"

#include <algorithm>

namespace {

constexpr std::size_t kMostPostedTogether = 256;
constexpr std::int64_t kMostBytesTogether = 65536;
constexpr std::size_t kIdleCapacity = 1024;

// Bodies that the application may have, as far as they count, before further ones are kept back. A
// 32-bit process has less room.
constexpr std::int64_t kMostWithApplication = std::int64_t{sizeof(void*) > 4 ? 256 : 128} << 20;
// An application that returns none at all gets one more after this time.
constexpr std::int64_t kPatienceMs = 1000;

bool IsBody(const platform::WindowPost& post) {
  return post.w_param != 0;
}

std::int64_t BytesOf(const platform::WindowPost& post) {
  const std::int64_t entry = 2 * sizeof post;  // the list may have as much room again
  return IsBody(post) ? entry + ft::kBlockCost + post.l_param : entry;
}

std::int64_t CountedBytesOf(const platform::WindowPost& post) {
  return IsBody(post) ? ft::CountedBytesOf(static_cast<std::size_t>(post.l_param)) : 0;
}

void DiscardBody(std::uintptr_t body) {
  ft::FreeBody(reinterpret_cast<char*>(body));
}

}  // namespace

CNotificationQueue::~CNotificationQueue() {
  ReleaseAll();
}

void CNotificationQueue::ReleaseAll() {
  for (std::size_t i = m_next; i < m_posts.size(); ++i) DiscardBody(m_posts[i].w_param);
  Remove(m_posts.size() - m_next);
}

void CNotificationQueue::AddBody(ft::FTBodyPtr body, std::int32_t body_len) {
  Add({0, reinterpret_cast<std::uintptr_t>(body.get()), body_len});
  body.release();
}

void CNotificationQueue::AddLinkEvent(std::intptr_t link_event) {
  Add({0, 0, link_event});
}

void CNotificationQueue::Add(const platform::WindowPost& post) {
  // Before the list grows, what has left makes room, if that is worth the moves.
  if (m_posts.size() == m_posts.capacity() && m_next * 2 > m_posts.size()) {
    m_posts.erase(m_posts.begin(), m_posts.begin() + static_cast<std::ptrdiff_t>(m_next));
    m_next = 0;
  }
  m_posts.push_back(post);
  m_bytes += BytesOf(post);
  m_counted_bytes += CountedBytesOf(post);
  ++m_added;
  m_added_bytes += BytesOf(post);
}

bool CNotificationQueue::IsBatchFull() const {
  return m_added >= kMostPostedTogether || m_added_bytes >= kMostBytesTogether;
}

bool CNotificationQueue::PostTo(std::uint32_t window, std::uint32_t message) {
  const std::int64_t bytes_before = m_bytes;
  m_added = 0;
  m_added_bytes = 0;
  platform::WindowState state = platform::WindowState::kOpen;
  while (state == platform::WindowState::kOpen) {
    const std::size_t count = CountPostable();
    if (count == 0) break;
    platform::WindowPost* const posts = m_posts.data() + m_next;
    for (std::size_t i = 0; i < count; ++i) posts[i].message = message;
    const auto result = platform::PostToWindow(window, posts, count, &DiscardBody);
    Remove(result.posted);
    state = result.window;
  }
  if (state == platform::WindowState::kGone) ReleaseAll();
  return m_bytes != bytes_before;
}

void CNotificationQueue::MoveTo(CReceivedQueue* received) {
  while (!IsEmpty()) {
    const platform::WindowPost& post = m_posts[m_next];
    const ft::FTBodyPtr body(reinterpret_cast<char*>(post.w_param));
    if (body != nullptr) received->Push(body.get(), static_cast<std::int32_t>(post.l_param));
    Remove(1);
  }
}

// How many of the next ones the application may have. Of short bodies it has few, since a window
// takes only so many messages.
std::size_t CNotificationQueue::CountPostable() {
  const std::size_t most = std::min(m_posts.size() - m_next, kMostPostedTogether);
  if (m_counted_bytes == 0) return most;
  const auto counted = static_cast<std::int64_t>(ft::CountedBodyBytes());
  const std::int64_t with_application = counted - m_counted_bytes;
  std::int64_t would_have = with_application;
  std::size_t count = 0;
  for (; count < most; ++count) {
    const std::int64_t bytes = CountedBytesOf(m_posts[m_next + count]);
    if (bytes > 0 && would_have >= kMostWithApplication) break;
    would_have += bytes;
  }
  if (count == 0 && most > 0 && IsTimeForOneMore(with_application)) return 1;
  return count;
}

// True, once in a while, when the application returns nothing: it may mean to keep it.
bool CNotificationQueue::IsTimeForOneMore(std::int64_t with_application) {
  const FTTime now = ft::GetTickTime();
  if (with_application != m_with_application) {
    m_with_application = with_application;
    m_unchanged_since = now;
  }
  if (ft::ElapsedMs(now, m_unchanged_since) < kPatienceMs) return false;
  m_unchanged_since = now;
  return true;
}

void CNotificationQueue::Remove(std::size_t count) {
  for (; count > 0; --count) {
    const platform::WindowPost& post = m_posts[m_next++];
    m_bytes -= BytesOf(post);
    m_counted_bytes -= CountedBytesOf(post);
  }
  if (IsEmpty()) {
    m_posts.clear();
    m_next = 0;
    if (m_posts.capacity() > kIdleCapacity) std::vector<platform::WindowPost>().swap(m_posts);
  }
}
