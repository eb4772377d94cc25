#include "tests/support/socket_io.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
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

void BindTo(const Descriptor& socket, std::uint16_t port) {
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  const sockaddr_in address = Loopback(port);
  if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ThrowSystemError("bind to port " + std::to_string(port));
  }
}

}  // namespace

std::chrono::nanoseconds Deadline::Remaining() const {
  return std::max<std::chrono::nanoseconds>(m_end - std::chrono::steady_clock::now(),
                                            std::chrono::nanoseconds(0));
}

Descriptor::Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    Close();
    m_fd = std::exchange(other.m_fd, -1);
  }
  return *this;
}

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

bool ConnectTo(const Descriptor& socket, std::uint16_t port, const Deadline& deadline) {
  const std::string what = "connect to port " + std::to_string(port);
  const sockaddr_in address = Loopback(port);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return true;
  }
  if (errno != EINPROGRESS && errno != EINTR) ThrowSystemError(what);
  if (!WaitReady(socket, POLLOUT, deadline)) return false;
  socklen_t length = sizeof errno;
  if (getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &errno, &length) != 0 || errno != 0) {
    ThrowSystemError(what);
  }
  return true;
}

bool WaitReady(const Descriptor& socket, short events, const Deadline& deadline) {
  if (socket.Get() < 0) throw std::logic_error("this end of the link was closed before");
  for (;;) {
    const std::chrono::nanoseconds remaining = deadline.Remaining();
    const timespec limit{static_cast<time_t>(remaining.count() / 1000000000),
                         static_cast<long>(remaining.count() % 1000000000)};
    pollfd entry{socket.Get(), events, 0};
    const int ready = ppoll(&entry, 1, &limit, nullptr);
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) ThrowSystemError("ppoll");
  }
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

void CloseWithReset(Descriptor* socket) {
  SetOption(*socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
  socket->Close();
}

}  // namespace testkit
