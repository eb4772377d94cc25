#include "tests/support/socket_io.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace testkit {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

template <typename Value>
void SetOption(const Descriptor& socket, int level, int option, const Value& value) {
  if (setsockopt(socket.Get(), level, option, &value, sizeof value) != 0) {
    ThrowSystemError("setsockopt");
  }
}

int IntOption(const Descriptor& socket, int level, int option) {
  int value = 0;
  socklen_t length = sizeof value;
  if (getsockopt(socket.Get(), level, option, &value, &length) != 0) ThrowSystemError("getsockopt");
  return value;
}

void BindTo(const Descriptor& socket, std::uint16_t port) {
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  const sockaddr_in address = Loopback(port);
  if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ThrowSystemError("bind to port " + std::to_string(port));
  }
}

}  // namespace

void Descriptor::Close() {
  if (m_fd >= 0) close(std::exchange(m_fd, -1));
}

void ThrowSystemError(const std::string& what) {
  throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

Descriptor OpenSocket() {
  Descriptor opened(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (opened.Get() < 0) ThrowSystemError("socket");
  SetOption(opened, IPPROTO_TCP, TCP_NODELAY, 1);
  return opened;
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

std::uint16_t LocalPort(const Descriptor& socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ThrowSystemError("getsockname");
  }
  return ntohs(address.sin_port);
}

void StartListening(const Descriptor& socket, int backlog) {
  if (listen(socket.Get(), backlog) != 0) ThrowSystemError("listen");
}

Descriptor AcceptWaiting(const Descriptor& listening) {
  Descriptor accepted(accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (accepted.Get() >= 0) {
    SetOption(accepted, IPPROTO_TCP, TCP_NODELAY, 1);
  } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
    ThrowSystemError("accept");
  }
  return accepted;
}

void EndListening(Descriptor* socket) {
  // The end of listening without closing: the port stays bound.
  if (shutdown(socket->Get(), SHUT_RDWR) != 0) ThrowSystemError("shutdown");
}

bool ConnectTo(const Descriptor& socket, std::uint16_t port, const Deadline& deadline) {
  const std::string what = "connect to port " + std::to_string(port);
  const sockaddr_in address = Loopback(port);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return true;
  }
  if (errno != EINPROGRESS && errno != EINTR) ThrowSystemError(what);
  if (!WaitReady(socket, Direction::kWrite, deadline)) return false;
  socklen_t length = sizeof errno;
  if (getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &errno, &length) != 0 || errno != 0) {
    ThrowSystemError(what);
  }
  return true;
}

bool WaitReady(const Descriptor& socket, Direction direction, const Deadline& deadline) {
  if (socket.Get() < 0) throw std::logic_error("this end of the link was closed before");
  for (;;) {
    const std::chrono::nanoseconds remaining = deadline.Remaining();
    const timespec limit{static_cast<time_t>(remaining.count() / 1000000000),
                         static_cast<long>(remaining.count() % 1000000000)};
    pollfd entry{socket.Get(), direction == Direction::kRead ? short{POLLIN} : short{POLLOUT}, 0};
    const int ready = ppoll(&entry, 1, &limit, nullptr);
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) ThrowSystemError("ppoll");
  }
}

void WaitForAny(const std::vector<Interest>& interests) {
  std::vector<pollfd> entries;
  for (const Interest& interest : interests) {
    const int events = interest.also_write ? POLLIN | POLLOUT : POLLIN;
    entries.push_back({interest.socket->Get(), static_cast<short>(events), 0});
  }
  ppoll(entries.data(), entries.size(), nullptr, nullptr);
}

ReadResult ReadAvailable(const Descriptor& socket, Bytes* bytes) {
  Bytes piece(kReadSize, '\0');
  const ssize_t count =
      recvfrom(socket.Get(), piece.data(), piece.size(), MSG_DONTWAIT, nullptr, nullptr);
  if (count > 0) {
    bytes->append(piece, 0, static_cast<std::size_t>(count));
    return ReadResult::kBytes;
  }
  if (count == 0) return ReadResult::kOrderlyEnd;
  if (errno == EAGAIN || errno == EINTR) return ReadResult::kNothing;
  if (errno == ECONNRESET || errno == EPIPE || errno == ETIMEDOUT) return ReadResult::kReset;
  ThrowSystemError("receive");
}

std::size_t WriteAvailable(const Descriptor& socket, const char* data, std::size_t size) {
  const ssize_t count = sendto(socket.Get(), data, size, MSG_NOSIGNAL | MSG_DONTWAIT, nullptr, 0);
  if (count >= 0) return static_cast<std::size_t>(count);
  if (errno == EAGAIN || errno == EINTR) return 0;
  ThrowSystemError("send");
}

void StopSending(const Descriptor& socket) {
  if (shutdown(socket.Get(), SHUT_WR) != 0) ThrowSystemError("shutdown");
}

void SetReceiveBuffer(const Descriptor& socket, int bytes) {
  SetOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

void CloseWithReset(Descriptor* socket) {
  SetOption(*socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
  socket->Close();
}

bool IsNonBlocking(const Descriptor& socket) {
  return (fcntl(socket.Get(), F_GETFL) & O_NONBLOCK) != 0;
}

bool IsInherited(const Descriptor& socket) {
  return (fcntl(socket.Get(), F_GETFD) & FD_CLOEXEC) == 0;
}

bool DelaysSmallWrites(const Descriptor& socket) {
  return IntOption(socket, IPPROTO_TCP, TCP_NODELAY) == 0;
}

// The system sets aside twice the bytes, for notes of its own, and says so.
int SendBuffer(const Descriptor& socket) {
  return IntOption(socket, SOL_SOCKET, SO_SNDBUF) / 2;
}

int ReceiveBuffer(const Descriptor& socket) {
  return IntOption(socket, SOL_SOCKET, SO_RCVBUF) / 2;
}

}  // namespace testkit
