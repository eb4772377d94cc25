#define FD_SETSIZE 2049  // one more than a set holds: the waker
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
static_assert(SocketSet::kCapacity < FD_SETSIZE);

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

void AddTo(fd_set* system_set, Socket socket) {
  if (socket != kNoSocket) system_set->fd_array[system_set->fd_count++] = Handle(socket);
}

void FillSystemSet(const SocketSet* set, fd_set* system_set) {
  FD_ZERO(system_set);
  if (set == nullptr) return;
  for (const Socket socket : set->Members()) AddTo(system_set, socket);
}

// The members in the order of the set.
int KeepReady(const fd_set& system_set, SocketSet* set) {
  if (set == nullptr) return 0;
  std::vector<Socket> ready;
  for (const Socket socket : set->Members()) {
    if (FD_ISSET(Handle(socket), &system_set)) ready.push_back(socket);
  }
  const auto count = static_cast<int>(ready.size());
  set->Assign(std::move(ready));
  return count;
}

// -1: failed. The system refuses to wait for nothing at all.
int Select(fd_set* readable, fd_set* writable, Socket extra, int timeout_ms, SocketError* error) {
  AddTo(readable, extra);
  if (readable->fd_count == 0 && writable->fd_count == 0) {
    Sleep(timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms));
    return 0;
  }
  timeval limit{timeout_ms / 1000, timeout_ms % 1000 * 1000};
  const int ready = select(0, readable, writable, nullptr, timeout_ms < 0 ? nullptr : &limit);
  if (ready < 0) *error = MeaningOf(WSAGetLastError());
  return ready;
}

template <typename Piece>
void FillParts(const Piece* pieces, int count, WSABUF* parts) {
  for (int i = 0; i < count; ++i) {
    parts[i].buf = static_cast<char*>(const_cast<void*>(pieces[i].data));
    parts[i].len = static_cast<ULONG>(pieces[i].length);
  }
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

bool BindSocket(Socket socket, const SocketAddress& local) {
  return local.address != kNoAddress && bind(Handle(socket), AsSystem(&local), sizeof local) == 0;
}

// Exclusively, which keeps other programs off the port, unless links of a former listener are still
// up: they would be in the way, and only of an exclusive one.
bool ListenOn(Socket socket, const SocketAddress& local) {
  for (const BOOL exclusive : {TRUE, FALSE}) {
    setsockopt(Handle(socket), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, AsOption(&exclusive),
               sizeof exclusive);
    if (BindSocket(socket, local)) return listen(Handle(socket), SOMAXCONN) == 0;
  }
  return false;
}

Socket backend::Accept(Socket listening, SocketAddress* peer, SocketError* error) {
  SocketAddress address{};
  int length = sizeof address;
  const SOCKET socket = accept(Handle(listening), AsSystem(&address), &length);
  if (socket == INVALID_SOCKET) {
    const int why = WSAGetLastError();
    // The one who waited has reset the link.
    const bool gone = why == WSAECONNRESET || why == WSAENOTCONN;
    *error = gone ? SocketError::kAborted : MeaningOf(why);
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

int backend::Receive(Socket socket, const BytePiece* pieces, int count, SocketError* error) {
  WSABUF parts[kMaxPieces];
  FillParts(pieces, count, parts);
  DWORD received = 0;
  DWORD flags = 0;
  const int result = WSARecv(Handle(socket), parts, static_cast<DWORD>(count), &received, &flags,
                             nullptr, nullptr);
  if (result == 0 && received > 0) return static_cast<int>(received);
  *error = result == 0 ? SocketError::kBroken : MeaningOf(WSAGetLastError());
  return 0;
}

int backend::Send(Socket socket, const ConstBytePiece* pieces, int count, SocketError* error) {
  WSABUF parts[kMaxPieces];
  FillParts(pieces, count, parts);
  DWORD sent = 0;
  const int result =
      WSASend(Handle(socket), parts, static_cast<DWORD>(count), &sent, 0, nullptr, nullptr);
  if (result == 0 && sent > 0) return static_cast<int>(sent);
  *error = result == 0 ? SocketError::kBroken : MeaningOf(WSAGetLastError());
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

// The system takes an empty name for the local host's; here it is nobody's.
bool LookUpHost(const char* name, std::uint32_t* address) {
  if (*name == '\0') return false;
  const hostent* const found = gethostbyname(name);  // each thread has its own
  if (found == nullptr || found->h_addr_list[0] == nullptr) return false;
  *address = reinterpret_cast<const in_addr*>(found->h_addr_list[0])->s_addr;
  return true;
}

int backend::Wait(SocketSet* read, SocketSet* write, Socket extra, int timeout_ms,
                  SocketError* error) {
  fd_set readable;
  fd_set writable;
  FillSystemSet(read, &readable);
  FillSystemSet(write, &writable);
  if (Select(&readable, &writable, extra, timeout_ms, error) < 0) return -1;
  return KeepReady(readable, read) + KeepReady(writable, write);
}

int backend::WaitForOne(Socket socket, Readiness readiness, Socket extra, int timeout_ms,
                        SocketError* error) {
  fd_set sets[2];
  fd_set& own = sets[readiness == Readiness::kReadable ? 0 : 1];
  FD_ZERO(&sets[0]);
  FD_ZERO(&sets[1]);
  AddTo(&own, socket);
  if (Select(&sets[0], &sets[1], extra, timeout_ms, error) < 0) return -1;
  return socket != kNoSocket && FD_ISSET(Handle(socket), &own) ? 1 : 0;
}

// A socket that is its own peer: whatever is sent makes it readable.
Socket backend::OpenSignal() {
  StartSockets();
  const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (socket == INVALID_SOCKET) return kNoSocket;
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  SocketAddress address{kFamilyInet, 0, htonl(INADDR_LOOPBACK), {}};
  const auto signal = static_cast<Socket>(socket);
  const bool bound = bind(socket, AsSystem(&address), sizeof address) == 0 &&
                     GetLocalAddress(signal, &address) &&
                     connect(socket, AsSystem(&address), sizeof address) == 0;
  SetBlocking(signal, false);
  if (bound) return signal;
  CloseSocket(signal);
  return kNoSocket;
}

void backend::Signal(Socket signal) {
  send(Handle(signal), "", 1, 0);
}

void backend::Unsignal(Socket signal) {
  char byte;
  while (recv(Handle(signal), &byte, 1, 0) > 0) {
  }
}

void backend::CloseSignal(Socket signal) {
  CloseSocket(signal);
}

}  // namespace platform
