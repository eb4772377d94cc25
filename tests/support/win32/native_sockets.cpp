#include "tests/support/native_sockets.h"

#include <windows.h>

#include <cerrno>
#include <system_error>

namespace testkit {

namespace native {

namespace {

constexpr struct {
  int error;  // errno value
  int system_error;
} kErrors[] = {
    {EINTR, WSAEINTR},         {EAGAIN, WSAEWOULDBLOCK},        {ECONNRESET, WSAECONNRESET},
    {ETIMEDOUT, WSAETIMEDOUT}, {ECONNABORTED, WSAECONNABORTED}, {ENETRESET, WSAENETRESET},
};

void StartWinsock() {
  static const int failed = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (failed != 0) ThrowSystemError("WSAStartup");
}

// Handles of this system fit into 32 bits.
int Prepared(SOCKET socket) {
  if (socket == INVALID_SOCKET) return -1;
  u_long non_blocking = 1;
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  ioctlsocket(socket, FIONBIO, &non_blocking);
  return static_cast<int>(socket);
}

}  // namespace

const int kSendFlags = 0;
const int kBufferShare = 1;

int OpenSocket() {
  StartWinsock();
  return Prepared(socket(AF_INET, SOCK_STREAM, 0));
}

int Accept(int listening) {
  return Prepared(accept(static_cast<SOCKET>(listening), nullptr, nullptr));
}

int Poll(pollfd* entries, std::size_t count, int limit_ms) {
  return WSAPoll(entries, static_cast<u_long>(count), limit_ms);
}

int LastError() {
  const int error = WSAGetLastError();
  for (const auto& row : kErrors) {
    if (row.system_error == error) return row.error;
  }
  return error;
}

void SetLastError(int error) {
  for (const auto& row : kErrors) {
    if (row.error == error) error = row.system_error;
  }
  WSASetLastError(error);
}

}  // namespace native

void ThrowSystemError(const std::string& what) {
  const auto error = static_cast<int>(GetLastError());
  throw std::system_error(error, std::system_category(), what);
}

void Descriptor::Close() {
  if (m_fd >= 0) closesocket(static_cast<SOCKET>(std::exchange(m_fd, -1)));
}

Descriptor OpenBoundSocket() {
  Descriptor socket = OpenSocket();
  BindTo(socket, 0);
  return socket;
}

void EndListening(Descriptor* socket) {
  // Only closing ends it. The system gives out its ports in turn, so this one is still free.
  const std::uint16_t port = LocalPort(*socket);
  socket->Close();
  *socket = OpenSocket();
  BindTo(*socket, port);
}

// The system does not tell; a socket that blocks, blocks here. One that listens has nothing to read
// and shows the same when it is asked to accept.
bool IsNonBlocking(const Descriptor& socket) {
  char byte;
  const auto native = static_cast<SOCKET>(socket.Get());
  if (recvfrom(native, &byte, 1, MSG_PEEK, nullptr, nullptr) >= 0) return false;
  if (WSAGetLastError() != WSAENOTCONN) return WSAGetLastError() == WSAEWOULDBLOCK;
  return AcceptWaiting(socket).Get() < 0;
}

bool IsInherited(const Descriptor& socket) {
  DWORD flags = HANDLE_FLAG_INHERIT;
  GetHandleInformation(reinterpret_cast<HANDLE>(socket.Get()), &flags);
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}

}  // namespace testkit
