#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

bool WaitForStandardError(int timeout_ms) {
  static std::atomic<bool> nobody_reads{false};
  pollfd entry{STDERR_FILENO, POLLOUT, 0};
  nobody_reads = poll(&entry, 1, nobody_reads ? 0 : timeout_ms) == 0;
  return !nobody_reads;
}

}  // namespace platform
