#include "tests/support/native_sockets.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace testkit {

namespace native {

const int kSendFlags = MSG_NOSIGNAL;
const int kBufferShare = 2;

int OpenSocket() {
  const int opened = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int reuse = 1;
  if (opened >= 0) setsockopt(opened, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  return opened;
}

int Accept(int listening) {
  return accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

int Poll(pollfd* entries, std::size_t count, int limit_ms) {
  const timespec limit{limit_ms / 1000, limit_ms % 1000 * 1000000L};
  return ppoll(entries, count, limit_ms < 0 ? nullptr : &limit, nullptr);
}

int LastError() {
  return errno;
}

void SetLastError(int error) {
  errno = error;
}

}  // namespace native

void ThrowSystemError(const std::string& what) {
  throw std::system_error(errno, std::system_category(), what);
}

void Descriptor::Close() {
  if (m_fd >= 0) close(std::exchange(m_fd, -1));
}

Descriptor OpenBoundSocket() {
  // A port that was asked for by number stays bound when the socket stops listening; one that the
  // system chose does not. So the first socket finds a number for the second.
  const Descriptor finder = OpenSocket();
  BindTo(finder, 0);
  Descriptor keeper = OpenSocket();
  BindTo(keeper, LocalPort(finder));
  return keeper;
}

void EndListening(Descriptor* socket) {
  // The end of listening without closing: the port stays bound.
  if (shutdown(socket->Get(), SHUT_RDWR) != 0) ThrowSystemError("shutdown");
}

bool IsNonBlocking(const Descriptor& socket) {
  return (fcntl(socket.Get(), F_GETFL) & O_NONBLOCK) != 0;
}

bool IsInherited(const Descriptor& socket) {
  return (fcntl(socket.Get(), F_GETFD) & FD_CLOEXEC) == 0;
}

}  // namespace testkit
