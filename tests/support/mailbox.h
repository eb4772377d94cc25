#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace testkit {

// Where callbacks on other threads put what they saw, for the test to wait for. All members may be
// called from any thread.
template <typename T>
class Mailbox {
 public:
  void Push(T item) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_items.push_back(std::move(item));
    m_changed.notify_all();  // with the lock held: the box may be gone once it is free
  }

  // True once this many items are here; false when the limit passes first.
  bool WaitFor(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> guard(m_lock);
    return m_changed.wait_for(guard, limit, [&] { return m_items.size() >= count; });
  }

  // Removes and returns the oldest item; nothing when none comes within the limit.
  std::optional<T> Take(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> guard(m_lock);
    if (!m_changed.wait_for(guard, limit, [&] { return !m_items.empty(); })) return std::nullopt;
    std::optional<T> item(std::move(m_items.front()));
    m_items.pop_front();
    return item;
  }

  // A copy of what is here, oldest first.
  std::vector<T> All() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return std::vector<T>(m_items.begin(), m_items.end());
  }

  std::size_t Count() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_items.size();
  }

 private:
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::deque<T> m_items;
};

}  // namespace testkit
