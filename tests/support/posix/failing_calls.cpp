#include "tests/support/failing_calls.h"

#include <dlfcn.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>

namespace {

// The errno value with which the next call fails; 0: it is carried out.
std::atomic<int> g_connect_error{0};
std::atomic<int> g_accept_error{0};

bool Fails(std::atomic<int>* error) {
  const int ordered = error->exchange(0);
  if (ordered != 0) errno = ordered;
  return ordered != 0;
}

}  // namespace

// These stand before the C library's functions of their names.
extern "C" int connect(int socket, const sockaddr* address, socklen_t length) {
  static const auto next = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
  return Fails(&g_connect_error) ? -1 : next(socket, address, length);
}

extern "C" int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  static const auto next = reinterpret_cast<decltype(&accept4)>(dlsym(RTLD_NEXT, "accept4"));
  return Fails(&g_accept_error) ? -1 : next(socket, address, length, flags);
}

namespace testkit {

void FailNextConnect(int system_error) {
  g_connect_error = system_error;
}

void FailNextAccept(int system_error) {
  g_accept_error = system_error;
}

}  // namespace testkit
