#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <new>

#include "platform/platform.h"

namespace platform {

namespace {

sigset_t PipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  return signals;
}

bool IsPending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

BrokenPipeGuard::BrokenPipeGuard() : m_was_pending(IsPending()) {
  static_assert(sizeof(sigset_t) <= sizeof m_storage && alignof(sigset_t) <= 8);
  const sigset_t pipe = PipeSignal();
  pthread_sigmask(SIG_BLOCK, &pipe, new (m_storage) sigset_t);
}

// What our own writes raised goes with us; what was waiting before is somebody else's.
BrokenPipeGuard::~BrokenPipeGuard() {
  const int error = errno;
  const sigset_t pipe = PipeSignal();
  const timespec at_once{};
  while (!m_was_pending && IsPending() && sigtimedwait(&pipe, nullptr, &at_once) < 0) {
  }
  pthread_sigmask(SIG_SETMASK, std::launder(reinterpret_cast<sigset_t*>(m_storage)), nullptr);
  errno = error;
}

// An interrupted wait goes on for what is left of it.
bool WaitForStandardError(int timeout_ms) {
  using Clock = std::chrono::steady_clock;
  static std::atomic<bool> nobody_reads{false};
  const auto end = Clock::now() + std::chrono::milliseconds(nobody_reads ? 0 : timeout_ms);
  pollfd entry{STDERR_FILENO, POLLOUT, 0};
  int ready = 0;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    ready = poll(&entry, 1, std::max(static_cast<int>(left.count()), 0));
  } while (ready < 0 && errno == EINTR);
  nobody_reads = ready == 0;
  return !nobody_reads;
}

}  // namespace platform
