#include "tests/support/socket_io.h"

#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/support/win32/winsock.h"

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
  const auto* const bytes = reinterpret_cast<const char*>(&value);
  if (setsockopt(Native(socket), level, option, bytes, sizeof value) != 0) {
    ThrowSystemError("setsockopt");
  }
}

int IntOption(const Descriptor& socket, int level, int option) {
  int value = 0;
  int length = sizeof value;
  if (getsockopt(Native(socket), level, option, reinterpret_cast<char*>(&value), &length) != 0) {
    ThrowSystemError("getsockopt");
  }
  return value;
}

void BindTo(const Descriptor& socket, std::uint16_t port) {
  const sockaddr_in address = Loopback(port);
  if (bind(Native(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ThrowSystemError("bind to port " + std::to_string(port));
  }
}

// What every socket of the kit is.
Descriptor Prepared(SOCKET native) {
  Descriptor socket(static_cast<int>(native));
  u_long non_blocking = 1;
  SetHandleInformation(reinterpret_cast<HANDLE>(native), HANDLE_FLAG_INHERIT, 0);
  if (ioctlsocket(native, FIONBIO, &non_blocking) != 0) ThrowSystemError("ioctlsocket");
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, BOOL{TRUE});
  return socket;
}

WSAPOLLFD Entry(const Descriptor& socket, int events) {
  return {Native(socket), static_cast<short>(events), 0};
}

}  // namespace

void Descriptor::Close() {
  if (m_fd >= 0) closesocket(static_cast<SOCKET>(std::exchange(m_fd, -1)));
}

void ThrowSystemError(const std::string& what) {
  const auto error = static_cast<int>(GetLastError());
  throw std::runtime_error(what + ": " + std::to_string(error) + ", " +
                           std::system_category().message(error));
}

Descriptor OpenSocket() {
  StartWinsock();
  const SOCKET opened = socket(AF_INET, SOCK_STREAM, 0);
  if (opened == INVALID_SOCKET) ThrowSystemError("socket");
  return Prepared(opened);
}

Descriptor OpenBoundSocket() {
  Descriptor socket = OpenSocket();
  BindTo(socket, 0);
  return socket;
}

std::uint16_t LocalPort(const Descriptor& socket) {
  sockaddr_in address{};
  int length = sizeof address;
  if (getsockname(Native(socket), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ThrowSystemError("getsockname");
  }
  return ntohs(address.sin_port);
}

void StartListening(const Descriptor& socket, int backlog) {
  if (listen(Native(socket), backlog) != 0) ThrowSystemError("listen");
}

void EndListening(Descriptor* socket) {
  // Only closing ends it. The system gives out its ports in turn, so this one is still free.
  const std::uint16_t port = LocalPort(*socket);
  socket->Close();
  *socket = OpenSocket();
  BindTo(*socket, port);
}

Descriptor AcceptWaiting(const Descriptor& listening) {
  const SOCKET accepted = accept(Native(listening), nullptr, nullptr);
  if (accepted != INVALID_SOCKET) return Prepared(accepted);
  const int error = WSAGetLastError();
  if (error != WSAEWOULDBLOCK && error != WSAECONNRESET) ThrowSystemError("accept");
  return Descriptor();
}

bool ConnectTo(const Descriptor& socket, std::uint16_t port, const Deadline& deadline) {
  const std::string what = "connect to port " + std::to_string(port);
  const sockaddr_in address = Loopback(port);
  const auto* const system_address = reinterpret_cast<const sockaddr*>(&address);
  if (connect(Native(socket), system_address, sizeof address) == 0) return true;
  if (WSAGetLastError() != WSAEWOULDBLOCK) ThrowSystemError(what);
  if (!WaitReady(socket, Direction::kWrite, deadline)) return false;
  if (const int error = IntOption(socket, SOL_SOCKET, SO_ERROR)) {
    WSASetLastError(error);
    ThrowSystemError(what);
  }
  return true;
}

bool WaitReady(const Descriptor& socket, Direction direction, const Deadline& deadline) {
  if (socket.Get() < 0) throw std::logic_error("this end of the link was closed before");
  WSAPOLLFD entry = Entry(socket, direction == Direction::kRead ? POLLRDNORM : POLLWRNORM);
  const auto limit = std::chrono::ceil<std::chrono::milliseconds>(deadline.Remaining());
  const int ready = WSAPoll(&entry, 1, static_cast<int>(limit.count()));
  if (ready < 0) ThrowSystemError("WSAPoll");
  return ready > 0;
}

void WaitForAny(const std::vector<Interest>& interests) {
  std::vector<WSAPOLLFD> entries;
  for (const Interest& interest : interests) {
    const int events = interest.also_write ? POLLRDNORM | POLLWRNORM : POLLRDNORM;
    entries.push_back(Entry(*interest.socket, events));
  }
  if (WSAPoll(entries.data(), static_cast<u_long>(entries.size()), -1) < 0) {
    ThrowSystemError("WSAPoll");
  }
}

ReadResult ReadAvailable(const Descriptor& socket, Bytes* bytes) {
  Bytes piece(kReadSize, '\0');
  WSABUF buffer{static_cast<u_long>(piece.size()), piece.data()};
  DWORD count = 0;
  DWORD flags = 0;
  if (WSARecv(Native(socket), &buffer, 1, &count, &flags, nullptr, nullptr) == 0) {
    if (count == 0) return ReadResult::kOrderlyEnd;
    bytes->append(piece, 0, count);
    return ReadResult::kBytes;
  }
  switch (WSAGetLastError()) {
    case WSAEWOULDBLOCK:
      return ReadResult::kNothing;
    case WSAECONNRESET:
    case WSAECONNABORTED:
    case WSAENETRESET:
    case WSAETIMEDOUT:
      return ReadResult::kReset;
    default:
      ThrowSystemError("receive");
  }
}

std::size_t WriteAvailable(const Descriptor& socket, const char* data, std::size_t size) {
  WSABUF buffer{static_cast<u_long>(size), const_cast<char*>(data)};
  DWORD count = 0;
  if (size == 0) return 0;
  if (WSASend(Native(socket), &buffer, 1, &count, 0, nullptr, nullptr) == 0) return count;
  if (WSAGetLastError() == WSAEWOULDBLOCK) return 0;
  ThrowSystemError("send");
}

void StopSending(const Descriptor& socket) {
  if (shutdown(Native(socket), SD_SEND) != 0) ThrowSystemError("shutdown");
}

void SetReceiveBuffer(const Descriptor& socket, int bytes) {
  SetOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

void CloseWithReset(Descriptor* socket) {
  SetOption(*socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
  socket->Close();
}

// The system does not tell; a socket that blocks, blocks here. One that listens has nothing to read
// and shows the same when it is asked to accept.
bool IsNonBlocking(const Descriptor& socket) {
  char byte;
  WSABUF buffer{1, &byte};
  DWORD count = 0;
  DWORD flags = MSG_PEEK;
  if (WSARecv(Native(socket), &buffer, 1, &count, &flags, nullptr, nullptr) == 0) return false;
  if (WSAGetLastError() != WSAENOTCONN) return WSAGetLastError() == WSAEWOULDBLOCK;
  return AcceptWaiting(socket).Get() < 0;
}

bool IsInherited(const Descriptor& socket) {
  DWORD flags = HANDLE_FLAG_INHERIT;
  GetHandleInformation(reinterpret_cast<HANDLE>(Native(socket)), &flags);
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}

bool DelaysSmallWrites(const Descriptor& socket) {
  return IntOption(socket, IPPROTO_TCP, TCP_NODELAY) == 0;
}

int SendBuffer(const Descriptor& socket) {
  return IntOption(socket, SOL_SOCKET, SO_SNDBUF);
}

int ReceiveBuffer(const Descriptor& socket) {
  return IntOption(socket, SOL_SOCKET, SO_RCVBUF);
}

}  // namespace testkit
