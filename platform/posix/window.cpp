#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "platform/message_window.h"
#include "platform/platform.h"
#include "platform/posix/window_queue.h"

namespace platform {

namespace {

// Which queue serves which window. Queues are used again and never given back.
class WindowRegistry {
 public:
  std::uint32_t Create() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_idle.reserve(m_queues.size() + 1);  // for all that come back
    if (m_idle.empty()) m_idle.push_back(&m_queues.emplace_back());
    while (m_next == 0 || m_windows.count(m_next) != 0) ++m_next;
    const auto entry = m_windows.emplace(m_next, m_idle.back()).first;
    if (!m_idle.back()->Open(m_next)) {
      m_windows.erase(entry);
      return 0;
    }
    m_idle.pop_back();
    return m_next++;
  }

  WindowQueue* Find(std::uint32_t window) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_windows.find(window);
    return found == m_windows.end() ? nullptr : found->second;
  }

  bool Destroy(std::uint32_t window) {
    WindowQueue* const queue = Remove(window);
    if (queue == nullptr) return false;
    queue->Close();
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_idle.push_back(queue);
    return true;
  }

 private:
  WindowQueue* Remove(std::uint32_t window) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_windows.find(window);
    if (found == m_windows.end()) return nullptr;
    WindowQueue* const queue = found->second;
    m_windows.erase(found);
    return queue;
  }

  std::mutex m_mutex;
  std::map<std::uint32_t, WindowQueue*> m_windows;
  std::deque<WindowQueue> m_queues;
  std::vector<WindowQueue*> m_idle;
  std::uint32_t m_next = 1;
};

// Never destroyed: a client may still be posting while the process exits.
WindowRegistry& Registry() {
  static auto* const registry = new WindowRegistry;
  return *registry;
}

// The window that this thread used last, since it mostly uses one. A queue that serves another
// window by now knows that itself.
struct LastUsed {
  std::uint32_t window = 0;
  WindowQueue* queue = nullptr;
};
thread_local LastUsed t_last;

WindowQueue* Find(std::uint32_t window) {
  if (window == 0) return nullptr;
  if (t_last.window != window) t_last = {window, Registry().Find(window)};
  if (t_last.queue == nullptr) t_last.window = 0;
  return t_last.queue;
}

}  // namespace

std::uint32_t CreateMessageWindow() {
  return Registry().Create();
}

WindowWait WaitWindowMessage(std::uint32_t window, WindowMessage* message, int timeout_ms) {
  WindowQueue* const queue = Find(window);
  return queue == nullptr ? WindowWait::kNoWindow : queue->Wait(window, message, timeout_ms);
}

int GetWindowDescriptor(std::uint32_t window) {
  WindowQueue* const queue = Find(window);
  return queue == nullptr ? -1 : queue->Descriptor(window);
}

bool DestroyMessageWindow(std::uint32_t window) {
  return Registry().Destroy(window);
}

bool IsWindowCapacityFixed() {
  return true;
}

PostResult PostToWindow(std::uint32_t window, const WindowPost* posts, std::size_t count,
                        DiscardFunction discard) {
  WindowQueue* const queue = Find(window);
  if (queue == nullptr) return {0, WindowState::kGone};
  return queue->Post(window, posts, count, discard);
}

}  // namespace platform
