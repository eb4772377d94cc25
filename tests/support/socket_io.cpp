#include "tests/support/socket_io.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "tests/support/native_sockets.h"

namespace testkit {

namespace {

constexpr int kReadSize = 64 * 1024;
constexpr std::size_t kMostWritten = 1 << 30;  // what all systems can count

void Require(bool done, const std::string& what) {
  if (!done) ThrowSystemError(what);
}

template <typename Value>
void SetOption(const Descriptor& socket, int level, int option, const Value& value) {
  const auto* const bytes = reinterpret_cast<const char*>(&value);
  Require(setsockopt(socket.Get(), level, option, bytes, sizeof value) == 0, "setsockopt");
}

int Option(const Descriptor& socket, int level, int option) {
  int value = 0;
  socklen_t length = sizeof value;
  auto* const bytes = reinterpret_cast<char*>(&value);
  Require(getsockopt(socket.Get(), level, option, bytes, &length) == 0, "getsockopt");
  return value;
}

// call is bind or connect.
template <typename Call>
bool AtLoopback(Call call, const Descriptor& socket, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return call(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

pollfd Entry(const Descriptor& socket, int events) {
  pollfd entry{};
  entry.fd = static_cast<decltype(entry.fd)>(socket.Get());
  entry.events = static_cast<short>(events);
  return entry;
}

bool IsLastError(std::initializer_list<int> errors) {
  return std::find(errors.begin(), errors.end(), native::LastError()) != errors.end();
}

}  // namespace

std::chrono::milliseconds Deadline::Remaining() const {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(m_end - std::chrono::steady_clock::now());
  return std::max(left, milliseconds(0));
}

Descriptor OpenSocket() {
  Descriptor opened(native::OpenSocket());
  Require(opened.Get() >= 0, "socket");
  SetOption(opened, IPPROTO_TCP, TCP_NODELAY, 1);
  return opened;
}

void BindTo(const Descriptor& socket, std::uint16_t port) {
  Require(AtLoopback(bind, socket, port), "bind to port " + std::to_string(port));
}

std::uint16_t LocalPort(const Descriptor& socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  auto* const system_address = reinterpret_cast<sockaddr*>(&address);
  Require(getsockname(socket.Get(), system_address, &length) == 0, "getsockname");
  return ntohs(address.sin_port);
}

void StartListening(const Descriptor& socket, int backlog) {
  Require(listen(socket.Get(), backlog) == 0, "listen");
}

Descriptor AcceptWaiting(const Descriptor& listening) {
  Descriptor accepted(native::Accept(listening.Get()));
  if (accepted.Get() >= 0) {
    SetOption(accepted, IPPROTO_TCP, TCP_NODELAY, 1);
  } else {
    Require(IsLastError({EAGAIN, EINTR, ECONNABORTED, ECONNRESET}), "accept");
  }
  return accepted;
}

bool ConnectTo(const Descriptor& socket, std::uint16_t port, const Deadline& deadline) {
  const std::string what = "connect to port " + std::to_string(port);
  if (AtLoopback(connect, socket, port)) return true;
  Require(IsLastError({EINPROGRESS, EAGAIN, EINTR}), what);
  if (!WaitReady(socket, Direction::kWrite, deadline)) return false;
  const int error = Option(socket, SOL_SOCKET, SO_ERROR);
  if (error != 0) throw std::system_error(error, std::system_category(), what);
  return true;
}

bool WaitReady(const Descriptor& socket, Direction direction, const Deadline& deadline) {
  if (socket.Get() < 0) throw std::logic_error("this end of the link was closed before");
  pollfd entry = Entry(socket, direction == Direction::kRead ? POLLIN : POLLOUT);
  for (;;) {
    const int ready = native::Poll(&entry, 1, static_cast<int>(deadline.Remaining().count()));
    if (ready >= 0) return ready > 0;
    Require(IsLastError({EINTR}), "poll");
  }
}

void WaitForAny(const std::vector<Interest>& interests) {
  std::vector<pollfd> entries;
  for (const Interest& interest : interests) {
    entries.push_back(Entry(*interest.socket, interest.also_write ? POLLIN | POLLOUT : POLLIN));
  }
  const int ready = native::Poll(entries.data(), entries.size(), -1);
  Require(ready >= 0 || IsLastError({EINTR}), "poll");
}

ReadResult ReadAvailable(const Descriptor& socket, Bytes* bytes) {
  Bytes piece(kReadSize, '\0');
  const auto count = recvfrom(socket.Get(), piece.data(), kReadSize, 0, nullptr, nullptr);
  if (count > 0) {
    bytes->append(piece, 0, static_cast<std::size_t>(count));
    return ReadResult::kBytes;
  }
  if (count == 0) return ReadResult::kOrderlyEnd;
  if (IsLastError({EAGAIN, EINTR})) return ReadResult::kNothing;
  Require(IsLastError({ECONNRESET, ECONNABORTED, ENETRESET, EPIPE, ETIMEDOUT}), "receive");
  return ReadResult::kReset;
}

std::size_t WriteAvailable(const Descriptor& socket, const char* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t asked = std::min(size, kMostWritten);
  const auto count = sendto(socket.Get(), data, asked, native::kSendFlags, nullptr, 0);
  if (count >= 0) return static_cast<std::size_t>(count);
  Require(IsLastError({EAGAIN, EINTR}), "send");
  return 0;
}

void StopSending(const Descriptor& socket) {
  constexpr int kWrites = 1;  // SHUT_WR, SD_SEND
  Require(shutdown(socket.Get(), kWrites) == 0, "shutdown");
}

void SetReceiveBuffer(const Descriptor& socket, int bytes) {
  SetOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

void CloseWithReset(Descriptor* socket) {
  SetOption(*socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
  socket->Close();
}

bool DelaysSmallWrites(const Descriptor& socket) {
  return Option(socket, IPPROTO_TCP, TCP_NODELAY) == 0;
}

int SendBuffer(const Descriptor& socket) {
  return Option(socket, SOL_SOCKET, SO_SNDBUF) / native::kBufferShare;
}

int ReceiveBuffer(const Descriptor& socket) {
  return Option(socket, SOL_SOCKET, SO_RCVBUF) / native::kBufferShare;
}

}  // namespace testkit
