#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "platform/message_window.h"
#include "platform/platform.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/monotonic.h"

namespace platform {

namespace {

struct QueuedMessage {
  WindowMessage message;
  DiscardFunction discard;
};

class MessageWindow {
 public:
  MessageWindow() : m_descriptor(AboveStandardStreams(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {
    InitMonotonicCondition(&m_arrived);
  }

  ~MessageWindow() {
    pthread_cond_destroy(&m_arrived);
    pthread_mutex_destroy(&m_mutex);
    if (IsUsable()) close(m_descriptor);
  }

  MessageWindow(const MessageWindow&) = delete;
  MessageWindow& operator=(const MessageWindow&) = delete;

  bool IsUsable() const { return m_descriptor >= 0; }

  bool Post(const QueuedMessage& queued) {
    const Guard guard(&m_mutex);
    if (m_destroyed) return false;
    m_queue.push_back(queued);
    if (m_queue.size() == 1) SignalDescriptor();
    if (m_waiters > 0) pthread_cond_signal(&m_arrived);
    return true;
  }

  WindowWait Wait(WindowMessage* message, int timeout_ms) {
    const Guard guard(&m_mutex);
    if (m_queue.empty() && !m_destroyed && timeout_ms != 0) WaitForArrival(timeout_ms);
    if (m_destroyed) return WindowWait::kNoWindow;
    if (m_queue.empty()) return WindowWait::kTimeOut;
    *message = m_queue.front().message;
    m_queue.pop_front();
    if (m_queue.empty()) ClearDescriptor();
    return WindowWait::kTaken;
  }

  int Descriptor() {
    const Guard guard(&m_mutex);
    if (m_destroyed) return -1;
    if (!m_descriptor_used) {
      m_descriptor_used = true;
      if (!m_queue.empty()) SignalDescriptor();
    }
    return m_descriptor;
  }

  void Destroy() {
    std::deque<QueuedMessage> unread;
    {
      const Guard guard(&m_mutex);
      m_destroyed = true;
      unread.swap(m_queue);
      SignalDescriptor();
      pthread_cond_broadcast(&m_arrived);
    }
    for (const QueuedMessage& queued : unread) {
      if (queued.discard != nullptr) queued.discard(queued.message.w_param);
    }
  }

 private:
  class Guard {
   public:
    explicit Guard(pthread_mutex_t* mutex) : m_mutex(mutex) { pthread_mutex_lock(m_mutex); }
    ~Guard() { pthread_mutex_unlock(m_mutex); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    pthread_mutex_t* m_mutex;
  };

  void WaitForArrival(int timeout_ms) {
    const timespec deadline =
        MonotonicDeadline(static_cast<std::uint32_t>(std::max(timeout_ms, 0)));
    ++m_waiters;
    int result = 0;
    while (m_queue.empty() && !m_destroyed && result != ETIMEDOUT) {
      result = timeout_ms < 0 ? pthread_cond_wait(&m_arrived, &m_mutex)
                              : pthread_cond_timedwait(&m_arrived, &m_mutex, &deadline);
    }
    --m_waiters;
  }

  // A window that nobody polls costs no system calls.
  void SignalDescriptor() {
    if (m_descriptor_used) eventfd_write(m_descriptor, 1);
  }

  void ClearDescriptor() {
    eventfd_t count = 0;
    if (m_descriptor_used) eventfd_read(m_descriptor, &count);
  }

  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t m_arrived;
  const int m_descriptor;
  bool m_descriptor_used = false;
  bool m_destroyed = false;
  int m_waiters = 0;
  std::deque<QueuedMessage> m_queue;
};

class WindowRegistry {
 public:
  std::uint32_t Add(std::shared_ptr<MessageWindow> window) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    while (m_next == 0 || m_windows.count(m_next) != 0) ++m_next;
    m_windows.emplace(m_next, std::move(window));
    return m_next++;
  }

  std::shared_ptr<MessageWindow> Find(std::uint32_t number) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_windows.find(number);
    return found == m_windows.end() ? nullptr : found->second;
  }

  std::shared_ptr<MessageWindow> Remove(std::uint32_t number) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_windows.find(number);
    if (found == m_windows.end()) return nullptr;
    auto window = std::move(found->second);
    m_windows.erase(found);
    return window;
  }

 private:
  std::mutex m_mutex;
  std::map<std::uint32_t, std::shared_ptr<MessageWindow>> m_windows;
  std::uint32_t m_next = 1;
};

// Never destroyed: a client may still be posting while the process exits.
WindowRegistry& Registry() {
  static auto* const registry = new WindowRegistry;
  return *registry;
}

}  // namespace

std::uint32_t CreateMessageWindow() {
  auto window = std::make_shared<MessageWindow>();
  return window->IsUsable() ? Registry().Add(std::move(window)) : 0;
}

WindowWait WaitWindowMessage(std::uint32_t window, WindowMessage* message, int timeout_ms) {
  const auto found = Registry().Find(window);
  return found == nullptr ? WindowWait::kNoWindow : found->Wait(message, timeout_ms);
}

int GetWindowDescriptor(std::uint32_t window) {
  const auto found = Registry().Find(window);
  return found == nullptr ? -1 : found->Descriptor();
}

bool DestroyMessageWindow(std::uint32_t window) {
  const auto found = Registry().Remove(window);
  if (found == nullptr) return false;
  found->Destroy();
  return true;
}

bool PostToWindow(std::uint32_t window, std::uint32_t message, std::uintptr_t w_param,
                  std::intptr_t l_param, DiscardFunction discard) {
  const auto found = Registry().Find(window);
  return found != nullptr && found->Post({{window, message, w_param, l_param}, discard});
}

}  // namespace platform
