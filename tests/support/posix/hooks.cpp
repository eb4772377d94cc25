// These functions stand before the C library's of their names, and before a sanitizer's, in every
// program that holds this object, unless the test has one of its own.
#include "tests/support/hooks.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>

#include <atomic>
#include <cerrno>

#include "tests/support/thread_limit.h"
#include "tests/support/wall_clock_shift.h"

#define HOOK extern "C" __attribute__((weak))

using namespace testkit;

namespace {

template <typename Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void testkit::LinkHooks() {}

HOOK ssize_t send(int socket, const void* data, size_t size, int flags) {
  static const auto next = Next(&send, "send");
  return Move(Hooked::kSend, size, [&](size_t count) { return next(socket, data, count, flags); });
}

HOOK ssize_t recv(int socket, void* buffer, size_t size, int flags) {
  static const auto next = Next(&recv, "recv");
  return Move(Hooked::kReceive, size,
              [&](size_t count) { return next(socket, buffer, count, flags); });
}

HOOK int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  static const auto next = Next(&poll, "poll");
  return Fails(Hooked::kPoll) ? -1 : next(entries, count, timeout_ms);
}

HOOK int connect(int socket, const sockaddr* address, socklen_t length) {
  static const auto next = Next(&connect, "connect");
  return Fails(Hooked::kConnect) ? -1 : next(socket, address, length);
}

HOOK int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  static const auto next = Next(&accept4, "accept4");
  return Fails(Hooked::kAccept) ? -1 : next(socket, address, length, flags);
}

// A limit of the system's would not bind a privileged user.
HOOK int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*main)(void*),
                        void* argument) noexcept {
  static const auto next = Next(&pthread_create, "pthread_create");
  return ThreadLimit::TakePlace() ? next(thread, attributes, main, argument) : EAGAIN;
}

// Called while the program is still being loaded: no lock, and none of the compiler's, is taken.
HOOK int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static std::atomic<int (*)(clockid_t, timespec*)> next{nullptr};
  if (next.load() == nullptr) next = Next(&clock_gettime, "clock_gettime");
  const int result = next.load()(clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) now->tv_sec += WallClockShift::Seconds();
  return result;
}
