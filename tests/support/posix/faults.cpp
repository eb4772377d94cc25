#include "tests/support/posix/faults.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>

#define HOOK extern "C" __attribute__((weak))
#define NEXT(function) reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function))

using namespace testkit;

// Leaves so many bytes in the message; the result holds its parts.
static std::vector<iovec> Cut(msghdr* message, std::size_t left) {
  std::vector<iovec> parts(message->msg_iov, message->msg_iov + message->msg_iovlen);
  for (iovec& part : parts) left -= part.iov_len = std::min(part.iov_len, left);
  message->msg_iov = parts.data();
  return parts;
}

HOOK ssize_t sendmsg(int socket, const msghdr* original, int flags) {
  static const auto next = NEXT(sendmsg);
  const auto limit = SocketFaults::Meet(Call::kSend);
  msghdr message = *original;
  const auto parts = Cut(&message, limit.value_or(0));
  return limit ? next(socket, &message, flags) : -1;
}

HOOK ssize_t recvmsg(int socket, msghdr* original, int flags) {
  static const auto next = NEXT(recvmsg);
  const auto limit = SocketFaults::Meet(Call::kReceive);
  msghdr message = *original;
  const auto parts = Cut(&message, limit.value_or(0));
  return limit ? next(socket, &message, flags) : -1;
}

HOOK int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  static const auto next = NEXT(poll);
  const auto limit = SocketFaults::Meet(Call::kPoll);
  if (limit && *limit < INT_MAX && timeout_ms > static_cast<int>(*limit)) {
    timeout_ms = static_cast<int>(*limit);
  }
  return limit ? next(entries, count, timeout_ms) : -1;
}

HOOK int connect(int socket, const sockaddr* address, socklen_t length) {
  static const auto next = NEXT(connect);
  return SocketFaults::Meet(Call::kConnect) ? next(socket, address, length) : -1;
}

HOOK int socket(int domain, int type, int protocol) noexcept {
  static const auto next = NEXT(socket);
  return SocketFaults::Meet(Call::kSocket) ? next(domain, type, protocol) : -1;
}

HOOK int eventfd(unsigned int count, int flags) noexcept {
  static const auto next = NEXT(eventfd);
  return SocketFaults::Meet(Call::kDescriptor) ? next(count, flags) : -1;
}

HOOK int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  static const auto next = NEXT(accept4);
  return SocketFaults::Meet(Call::kAccept) ? next(socket, address, length, flags) : -1;
}

// A limit of the system's would not bind a privileged user.
HOOK int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*main)(void*),
                        void* argument) noexcept {
  static const auto next = NEXT(pthread_create);
  if (FaultFree::s_depth > 0) return next(thread, attributes, main, argument);
  if (!SocketFaults::Meet(Call::kThread)) return errno;
  int left = ThreadLimit::s_left;
  while (left > 0 && !ThreadLimit::s_left.compare_exchange_weak(left, left - 1)) continue;
  if (left != 0) return next(thread, attributes, main, argument);
  ++ThreadLimit::s_refused;
  return EAGAIN;
}

// Called while the program is still being loaded: no lock, and none of the compiler's, is taken.
HOOK int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static std::atomic<int (*)(clockid_t, timespec*)> next{nullptr};
  if (next.load() == nullptr) next = NEXT(clock_gettime);
  const int result = next.load()(clock, now);
  if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
    now->tv_sec += ClockShift::s_wall;
  if (result == 0 && clock == CLOCK_BOOTTIME) now->tv_sec += ClockShift::s_slept;
  return result;
}
