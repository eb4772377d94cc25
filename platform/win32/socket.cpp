#define FD_SETSIZE 2048
#include <winsock2.h>

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "platform/platform.h"

namespace platform {

namespace {

static_assert(sizeof(SocketAddress) == sizeof(sockaddr_in) && kFamilyInet == AF_INET);
static_assert(offsetof(SocketAddress, port) == offsetof(sockaddr_in, sin_port));
static_assert(offsetof(SocketAddress, address) == offsetof(sockaddr_in, sin_addr));
static_assert(SocketSet::kCapacity == FD_SETSIZE);

struct ErrorRow {
  int system_error;
  SocketError meaning;
};

// Whatever is missing here is kBroken.
constexpr ErrorRow kErrors[] = {
    {0, SocketError::kNone},
    {WSAEWOULDBLOCK, SocketError::kWouldBlock},
    {WSAEINPROGRESS, SocketError::kInProgress},
    {WSAEINTR, SocketError::kInterrupted},
    {WSAECONNREFUSED, SocketError::kRefused},
    {WSAECONNABORTED, SocketError::kAborted},
};

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

bool IsHostAddress(const SocketAddress& address) {
  return address.address != kAnyAddress && address.address != kNoAddress;
}

// What every socket of ours is: kept from child processes, and quick with small packages.
Socket Prepared(SOCKET socket) {
  const BOOL on = TRUE;
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, AsOption(&on), sizeof on);
  return static_cast<Socket>(socket);
}

// Calls until the call was carried out: what interrupts it is no event of the link's.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result == static_cast<decltype(result)>(SOCKET_ERROR) && WSAGetLastError() == WSAEINTR) {
    result = call();
  }
  return result;
}

void FillSystemSet(const SocketSet* set, fd_set* system_set) {
  FD_ZERO(system_set);
  if (set == nullptr) return;
  for (const Socket socket : set->Members()) {
    system_set->fd_array[system_set->fd_count++] = Handle(socket);
  }
}

std::int64_t NowMs() {
  LARGE_INTEGER count;
  LARGE_INTEGER per_second;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&per_second);
  return count.QuadPart * 1000 / per_second.QuadPart;
}

int SelectUntil(const SocketSet* read, fd_set* readable, const SocketSet* write, fd_set* writable,
                int timeout_ms) {
  const std::int64_t deadline = NowMs() + timeout_ms;
  int remaining = timeout_ms;
  for (;;) {
    FillSystemSet(read, readable);
    FillSystemSet(write, writable);
    timeval limit{remaining / 1000, remaining % 1000 * 1000};
    const int ready = select(0, readable, writable, nullptr, timeout_ms < 0 ? nullptr : &limit);
    if (ready >= 0 || WSAGetLastError() != WSAEINTR) return ready;
    remaining = static_cast<int>(std::max<std::int64_t>(0, deadline - NowMs()));
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
  for (const ErrorRow& row : kErrors) {
    if (row.system_error == system_error) return row.meaning;
  }
  return SocketError::kBroken;
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

Socket AcceptSocket(Socket listening, SocketAddress* peer, SocketError* error) {
  SocketAddress address{};
  int length = sizeof address;
  const SOCKET socket =
      Uninterrupted([&] { return accept(Handle(listening), AsSystem(&address), &length); });
  if (socket == INVALID_SOCKET) {
    const int why = WSAGetLastError();
    *error = why == WSAECONNRESET ? SocketError::kAborted : MeaningOf(why);
    return kNoSocket;
  }
  *peer = address;
  *error = SocketError::kNone;
  return Prepared(socket);
}

SocketError ConnectSocket(Socket socket, const SocketAddress& remote) {
  if (remote.port == 0 || !IsHostAddress(remote)) return SocketError::kBroken;
  if (connect(Handle(socket), AsSystem(&remote), sizeof remote) == 0) return SocketError::kNone;
  switch (MeaningOf(WSAGetLastError())) {
    case SocketError::kWouldBlock:
    case SocketError::kInProgress:
    case SocketError::kInterrupted:  // the system goes on connecting
    case SocketError::kRefused:      // a peer's answer, only a quick one
      return SocketError::kInProgress;
    default:
      return SocketError::kBroken;
  }
}

ConnectState TakeConnectResult(Socket socket) {
  int error = 0;
  int length = sizeof error;
  if (getsockopt(Handle(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) !=
          0 ||
      error != 0) {
    return ConnectState::kFailed;
  }
  SocketAddress local{};
  SocketAddress peer{};
  if (!GetPeerAddress(socket, &peer) || !GetLocalAddress(socket, &local)) {
    return ConnectState::kFailed;
  }
  const bool itself = local.port == peer.port && local.address == peer.address;
  return itself ? ConnectState::kFailed : ConnectState::kConnected;
}

int ReceiveBytes(Socket socket, void* buffer, int length, SocketError* error) {
  const int received =
      Uninterrupted([&] { return recv(Handle(socket), static_cast<char*>(buffer), length, 0); });
  if (received > 0) return received;
  *error = received == 0 ? SocketError::kBroken : MeaningOf(WSAGetLastError());
  return 0;
}

int SendBytes(Socket socket, const void* data, int length, SocketError* error) {
  const int sent = Uninterrupted(
      [&] { return send(Handle(socket), static_cast<const char*>(data), length, 0); });
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

int WaitForSockets(SocketSet* read, SocketSet* write, int timeout_ms) {
  fd_set readable;
  fd_set writable;
  const int ready = SelectUntil(read, &readable, write, &writable, timeout_ms);
  if (ready <= 0) {
    FD_ZERO(&readable);
    FD_ZERO(&writable);
  }
  KeepReady(readable, read);
  KeepReady(writable, write);
  return ready < 0 ? -1 : ready;
}

}  // namespace platform
