#include "tests/support/socket.h"

#if __has_include(<sys/socket.h>)
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

using NativeSize = std::size_t;
const bool testkit::kFailedConnectsAreWritable = true;

bool testkit::IsInherited(const Descriptor& socket) {
  return (fcntl(socket.Get(), F_GETFD) & FD_CLOEXEC) == 0;
}
#else
#include <winsock2.h>
#include <ws2tcpip.h>

using NativeSize = int;
const bool testkit::kFailedConnectsAreWritable = false;

bool testkit::IsInherited(const Descriptor& socket) {
  DWORD flags = HANDLE_FLAG_INHERIT;
  GetHandleInformation(reinterpret_cast<HANDLE>(socket.Get()), &flags);
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}
#endif

namespace testkit {

void Listen(const Descriptor& socket, int backlog) {
  if (listen(socket.Get(), backlog) != 0) throw std::runtime_error("cannot listen");
}

int Receive(const Descriptor& socket, char* bytes, int most) {
  return static_cast<int>(recv(socket.Get(), bytes, static_cast<NativeSize>(most), 0));
}

void HalfClose(const Descriptor& socket) {
  shutdown(socket.Get(), 1);  // sending, on every system
}

// A socket that blocks, blocks here: to receive, or, when it listens, to accept.
bool IsNonBlocking(const Descriptor& socket) {
  char byte;
  return recv(socket.Get(), &byte, 1, MSG_PEEK) < 0 &&
         static_cast<int>(accept(socket.Get(), nullptr, nullptr)) < 0;
}

bool DelaysSmallWrites(const Descriptor& socket) {
  int no_delay = 0;
  socklen_t length = sizeof no_delay;
  getsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&no_delay), &length);
  return no_delay == 0;
}

void LimitBuffers(const Descriptor& socket, int bytes) {
  for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
    setsockopt(socket.Get(), SOL_SOCKET, option, reinterpret_cast<const char*>(&bytes),
               sizeof bytes);
  }
}

}  // namespace testkit
