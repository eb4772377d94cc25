#include "tests/support/thread_limit.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

using PthreadCreate = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

constexpr int kNoLimit = -1;

std::atomic<int> g_remaining{kNoLimit};
std::atomic<int> g_refused{0};

// False when the limit is reached; otherwise one thread fewer is left.
bool TakePlace() {
  int remaining = g_remaining.load();
  while (remaining > 0 && !g_remaining.compare_exchange_weak(remaining, remaining - 1)) {
  }
  return remaining != 0;
}

}  // namespace

// Stands before the C library's function of this name, and before a sanitizer's, in every program
// that holds this object. A limit of the system's would not bind a privileged user.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*main)(void*), void* argument) noexcept {
  static const auto next = reinterpret_cast<PthreadCreate>(dlsym(RTLD_NEXT, "pthread_create"));
  if (TakePlace()) return next(thread, attributes, main, argument);
  ++g_refused;
  return EAGAIN;
}

namespace testkit {

ThreadLimit::ThreadLimit(int more) {
  g_refused = 0;
  g_remaining = more;
}

ThreadLimit::~ThreadLimit() {
  g_remaining = kNoLimit;
}

int ThreadLimit::RefusedCount() const {
  return g_refused;
}

}  // namespace testkit
