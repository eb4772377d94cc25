#pragma once

#include <condition_variable>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

namespace testkit {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// For states that announce nothing when they change. The predicate is asked at the end too.
template <typename Predicate>
bool WaitUntil(Predicate predicate, Milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= deadline) return predicate();
    std::this_thread::sleep_for(Milliseconds(2));
  }
  return true;
}

// Runs work(0) to work(count - 1) at once, each on a thread of its own, and joins them all.
template <typename Work>
void RunOnThreads(int count, const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads) thread.join();
}

template <typename T>
class Mailbox {
 public:
  void Push(T item) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_items.push_back(std::move(item));
    m_changed.notify_all();  // with the lock held: the box may be gone once it is free
  }

  bool WaitFor(std::size_t count, Milliseconds limit) const {
    std::unique_lock<std::mutex> guard(m_lock);
    return m_changed.wait_for(guard, limit, [&] { return m_items.size() >= count; });
  }

  // Removes and returns the oldest item.
  std::optional<T> Take(Milliseconds limit) {
    std::unique_lock<std::mutex> guard(m_lock);
    if (!m_changed.wait_for(guard, limit, [&] { return !m_items.empty(); })) return std::nullopt;
    std::optional<T> item(std::move(m_items.front()));
    m_items.pop_front();
    return item;
  }

  std::vector<T> All() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return std::vector<T>(m_items.begin(), m_items.end());
  }

  std::size_t Count() const { return All().size(); }

 private:
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::deque<T> m_items;
};

}  // namespace testkit
