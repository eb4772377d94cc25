#include "tests/support/socket_fault_hooks.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

namespace testkit {

namespace {

// move(count) is the system's own function.
template <typename Move>
ssize_t MoveAsPlanned(FaultyCall call, int socket, std::size_t asked, Move move) {
  const int fault = TakeFault(call);
  const ssize_t result = fault != 0 ? -1 : move(AllowedBytes(call, asked));
  const int error = fault != 0 ? fault : errno;
  RecordCall(call, {socket, asked, result, result < 0 ? error : 0});
  if (result < 0) errno = error;
  return result;
}

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void LinkSocketHooks() {}

}  // namespace testkit

// These stand before the C library's functions of their names, and before a sanitizer's, in every
// program that holds this object.
extern "C" ssize_t send(int socket, const void* data, size_t size, int flags) {
  using namespace testkit;
  static const auto next = Next<decltype(&send)>("send");
  if (!AreFaultsActive()) return next(socket, data, size, flags);
  return MoveAsPlanned(FaultyCall::kSend, socket, size,
                       [&](size_t count) { return next(socket, data, count, flags); });
}

extern "C" ssize_t recv(int socket, void* buffer, size_t size, int flags) {
  using namespace testkit;
  static const auto next = Next<decltype(&recv)>("recv");
  if (!AreFaultsActive()) return next(socket, buffer, size, flags);
  return MoveAsPlanned(FaultyCall::kReceive, socket, size,
                       [&](size_t count) { return next(socket, buffer, count, flags); });
}

extern "C" int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  using namespace testkit;
  static const auto next = Next<decltype(&poll)>("poll");
  if (const int fault = AreFaultsActive() ? TakeFault(FaultyCall::kPoll) : 0) {
    errno = fault;
    return -1;
  }
  return next(entries, count, timeout_ms);
}
