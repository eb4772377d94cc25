#define FD_SETSIZE 2048
#include <winsock2.h>

#include <windows.h>

#include <cstddef>
#include <utility>

#include "platform/backend.h"

namespace platform {

namespace {

static_assert(sizeof(SocketAddress) == sizeof(sockaddr_in) && kFamilyInet == AF_INET);
static_assert(offsetof(SocketAddress, port) == offsetof(sockaddr_in, sin_port));
static_assert(offsetof(SocketAddress, address) == offsetof(sockaddr_in, sin_addr));
static_assert(SocketSet::kCapacity == FD_SETSIZE);

SOCKET Handle(Socket socket) {
  return static_cast<SOCKET>(socket);
}

const sockaddr* AsSystem(const SocketAddress* address) {
  return reinterpret_cast<const sockaddr*>(address);
}

sockaddr* AsSystem(SocketAddress* address) {
  return reinterpret_cast<sockaddr*>(address);
}

const char* AsOption(const void* value) {
  return static_cast<const char*>(value);
}

// What every socket of ours is: kept from child processes, and quick with small packages.
Socket Prepared(SOCKET socket) {
  const BOOL on = TRUE;
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, AsOption(&on), sizeof on);
  return static_cast<Socket>(socket);
}

void FillSystemSet(const SocketSet* set, fd_set* system_set) {
  FD_ZERO(system_set);
  if (set == nullptr) return;
  for (const Socket socket : set->Members()) {
    system_set->fd_array[system_set->fd_count++] = Handle(socket);
  }
}

void KeepReady(const fd_set& system_set, SocketSet* set) {
  if (set == nullptr) return;
  std::vector<Socket> ready;
  for (u_int i = 0; i < system_set.fd_count; ++i) {
    ready.push_back(static_cast<Socket>(system_set.fd_array[i]));
  }
  set->Assign(std::move(ready));
}

}  // namespace

SocketError MeaningOf(int system_error) {
  switch (system_error) {
    case 0:
      return SocketError::kNone;
    case WSAEWOULDBLOCK:
      return SocketError::kWouldBlock;
    case WSAEINPROGRESS:
      return SocketError::kInProgress;
    case WSAEINTR:
      return SocketError::kInterrupted;
    case WSAECONNREFUSED:
      return SocketError::kRefused;
    case WSAECONNABORTED:
      return SocketError::kAborted;
    default:
      return SocketError::kBroken;
  }
}

void StartSockets() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
}

Socket OpenTcpSocket() {
  const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
  return socket == INVALID_SOCKET ? kNoSocket : Prepared(socket);
}

void CloseSocket(Socket socket) {
  closesocket(Handle(socket));
}

void SetBlocking(Socket socket, bool blocking) {
  u_long non_blocking = blocking ? 0 : 1;
  ioctlsocket(Handle(socket), FIONBIO, &non_blocking);
}

void SetLinger(Socket socket, bool linger, int seconds) {
  const ::linger option{static_cast<u_short>(linger ? 1 : 0), static_cast<u_short>(seconds)};
  setsockopt(Handle(socket), SOL_SOCKET, SO_LINGER, AsOption(&option), sizeof option);
}

void SetBufferSizes(Socket socket, int send_bytes, int receive_bytes) {
  setsockopt(Handle(socket), SOL_SOCKET, SO_SNDBUF, AsOption(&send_bytes), sizeof send_bytes);
  setsockopt(Handle(socket), SOL_SOCKET, SO_RCVBUF, AsOption(&receive_bytes), sizeof receive_bytes);
}

bool BindSocket(Socket socket, const SocketAddress& local) {
  return local.address != kNoAddress && bind(Handle(socket), AsSystem(&local), sizeof local) == 0;
}

// Here a port can be listened on again at once without an option; this one keeps others off it.
bool ListenOn(Socket socket, const SocketAddress& local) {
  const BOOL on = TRUE;
  setsockopt(Handle(socket), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, AsOption(&on), sizeof on);
  return BindSocket(socket, local) && listen(Handle(socket), SOMAXCONN) == 0;
}

Socket backend::Accept(Socket listening, SocketAddress* peer, SocketError* error) {
  SocketAddress address{};
  int length = sizeof address;
  const SOCKET socket = accept(Handle(listening), AsSystem(&address), &length);
  if (socket == INVALID_SOCKET) {
    const int why = WSAGetLastError();
    *error = why == WSAECONNRESET ? SocketError::kAborted : MeaningOf(why);
    return kNoSocket;
  }
  *peer = address;
  return Prepared(socket);
}

SocketError backend::Connect(Socket socket, const SocketAddress& remote) {
  if (connect(Handle(socket), AsSystem(&remote), sizeof remote) == 0) return SocketError::kNone;
  const SocketError answer = MeaningOf(WSAGetLastError());
  return answer == SocketError::kWouldBlock ? SocketError::kInProgress : answer;
}

bool backend::TakeSuccess(Socket socket) {
  int error = 0;
  int length = sizeof error;
  auto* const value = reinterpret_cast<char*>(&error);
  return getsockopt(Handle(socket), SOL_SOCKET, SO_ERROR, value, &length) == 0 && error == 0;
}

int backend::Receive(Socket socket, void* buffer, int length, SocketError* error) {
  const int received = recv(Handle(socket), static_cast<char*>(buffer), length, 0);
  if (received > 0) return received;
  *error = received == 0 ? SocketError::kBroken : MeaningOf(WSAGetLastError());
  return 0;
}

int backend::Send(Socket socket, const void* data, int length, SocketError* error) {
  const int sent = send(Handle(socket), static_cast<const char*>(data), length, 0);
  if (sent > 0) return sent;
  *error = sent == 0 ? SocketError::kBroken : MeaningOf(WSAGetLastError());
  return 0;
}

bool GetLocalAddress(Socket socket, SocketAddress* address) {
  SocketAddress found{};
  int length = sizeof found;
  if (getsockname(Handle(socket), AsSystem(&found), &length) != 0) return false;
  *address = found;
  return true;
}

bool GetPeerAddress(Socket socket, SocketAddress* address) {
  SocketAddress found{};
  int length = sizeof found;
  if (getpeername(Handle(socket), AsSystem(&found), &length) != 0) return false;
  *address = found;
  return true;
}

std::uint32_t ParseAddress(const char* text) {
  return inet_addr(text);
}

std::uint16_t PortToNetwork(std::uint16_t port) {
  return htons(port);
}

std::uint16_t PortToHost(std::uint16_t port) {
  return ntohs(port);
}

// The system takes an empty name for the local host's; here it is nobody's.
bool LookUpHost(const char* name, std::uint32_t* address) {
  if (*name == '\0') return false;
  const hostent* const found = gethostbyname(name);  // each thread has its own
  if (found == nullptr || found->h_addr_list[0] == nullptr) return false;
  *address = reinterpret_cast<const in_addr*>(found->h_addr_list[0])->s_addr;
  return true;
}

int backend::Wait(SocketSet* read, SocketSet* write, int timeout_ms, SocketError* error) {
  fd_set readable;
  fd_set writable;
  FillSystemSet(read, &readable);
  FillSystemSet(write, &writable);
  timeval limit{timeout_ms / 1000, timeout_ms % 1000 * 1000};
  const int ready = select(0, &readable, &writable, nullptr, timeout_ms < 0 ? nullptr : &limit);
  if (ready < 0) {
    *error = MeaningOf(WSAGetLastError());
    return -1;
  }
  KeepReady(readable, read);
  KeepReady(writable, write);
  return ready;
}

}  // namespace platform
