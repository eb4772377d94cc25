#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/platform.h"

namespace platform {

namespace {

static_assert(sizeof(SocketAddress) == sizeof(sockaddr_in) && kFamilyInet == AF_INET);
static_assert(offsetof(SocketAddress, port) == offsetof(sockaddr_in, sin_port));
static_assert(offsetof(SocketAddress, address) == offsetof(sockaddr_in, sin_addr));

struct ErrorRow {
  int system_error;
  SocketError meaning;
};

// Whatever is missing here is kBroken.
constexpr ErrorRow kErrors[] = {
    {0, SocketError::kNone},
    {EAGAIN, SocketError::kWouldBlock},
    {EWOULDBLOCK, SocketError::kWouldBlock},
    {EINPROGRESS, SocketError::kInProgress},
    {EINTR, SocketError::kInterrupted},
    {ECONNREFUSED, SocketError::kRefused},
    {ECONNABORTED, SocketError::kAborted},
    {EPROTO, SocketError::kAborted},
};

int Fd(Socket socket) {
  return static_cast<int>(socket);
}

const sockaddr* AsSystem(const SocketAddress* address) {
  return reinterpret_cast<const sockaddr*>(address);
}

sockaddr* AsSystem(SocketAddress* address) {
  return reinterpret_cast<sockaddr*>(address);
}

bool IsHostAddress(const SocketAddress& address) {
  return address.address != kAnyAddress && address.address != kNoAddress;
}

void SendSmallPackagesAtOnce(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// Calls until the call was carried out: a signal of the host's is no event of the link's.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

std::int64_t NowMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int PollUntil(std::vector<pollfd>* entries, int timeout_ms) {
  const std::int64_t deadline = NowMs() + timeout_ms;
  int remaining = timeout_ms;
  for (;;) {
    const int ready = poll(entries->data(), entries->size(), timeout_ms < 0 ? -1 : remaining);
    if (ready >= 0 || errno != EINTR) return ready;
    remaining = static_cast<int>(std::max<std::int64_t>(0, deadline - NowMs()));
  }
}

void AddEntries(const SocketSet* set, short events, std::vector<pollfd>* entries) {
  if (set == nullptr) return;
  for (const Socket socket : set->Members()) entries->push_back({Fd(socket), events, 0});
}

int KeepReady(SocketSet* set, const pollfd* entries) {
  if (set == nullptr) return 0;
  std::vector<Socket> ready;
  for (const Socket socket : set->Members()) {
    if (entries++->revents != 0) ready.push_back(socket);
  }
  const auto count = static_cast<int>(ready.size());
  set->Assign(std::move(ready));
  return count;
}

}  // namespace

SocketError MeaningOf(int system_error) {
  for (const ErrorRow& row : kErrors) {
    if (row.system_error == system_error) return row.meaning;
  }
  return SocketError::kBroken;
}

void StartSockets() {}

Socket OpenTcpSocket() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return kNoSocket;
  SendSmallPackagesAtOnce(fd);
  return fd;
}

void CloseSocket(Socket socket) {
  close(Fd(socket));
}

void SetBlocking(Socket socket, bool blocking) {
  const int flags = fcntl(Fd(socket), F_GETFL, 0);
  fcntl(Fd(socket), F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

void SetLinger(Socket socket, bool linger, int seconds) {
  const ::linger option{linger ? 1 : 0, seconds};
  setsockopt(Fd(socket), SOL_SOCKET, SO_LINGER, &option, sizeof option);
}

void SetBufferSizes(Socket socket, int send_bytes, int receive_bytes) {
  setsockopt(Fd(socket), SOL_SOCKET, SO_SNDBUF, &send_bytes, sizeof send_bytes);
  setsockopt(Fd(socket), SOL_SOCKET, SO_RCVBUF, &receive_bytes, sizeof receive_bytes);
}

bool BindSocket(Socket socket, const SocketAddress& local) {
  return local.address != kNoAddress && bind(Fd(socket), AsSystem(&local), sizeof local) == 0;
}

bool ListenOn(Socket socket, const SocketAddress& local) {
  const int on = 1;
  setsockopt(Fd(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  return BindSocket(socket, local) && listen(Fd(socket), SOMAXCONN) == 0;
}

Socket AcceptSocket(Socket listening, SocketAddress* peer, SocketError* error) {
  SocketAddress address{};
  socklen_t length = sizeof address;
  const int fd = Uninterrupted(
      [&] { return accept4(Fd(listening), AsSystem(&address), &length, SOCK_CLOEXEC); });
  if (fd < 0) {
    *error = MeaningOf(errno);
    return kNoSocket;
  }
  SendSmallPackagesAtOnce(fd);
  *peer = address;
  *error = SocketError::kNone;
  return fd;
}

SocketError ConnectSocket(Socket socket, const SocketAddress& remote) {
  if (remote.port == 0 || !IsHostAddress(remote)) return SocketError::kBroken;
  if (connect(Fd(socket), AsSystem(&remote), sizeof remote) == 0) return SocketError::kNone;
  switch (MeaningOf(errno)) {
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
  socklen_t length = sizeof error;
  if (getsockopt(Fd(socket), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
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
  const auto received =
      Uninterrupted([&] { return recv(Fd(socket), buffer, static_cast<std::size_t>(length), 0); });
  if (received > 0) return static_cast<int>(received);
  *error = received == 0 ? SocketError::kBroken : MeaningOf(errno);
  return 0;
}

int SendBytes(Socket socket, const void* data, int length, SocketError* error) {
  const auto sent = Uninterrupted(
      [&] { return send(Fd(socket), data, static_cast<std::size_t>(length), MSG_NOSIGNAL); });
  if (sent > 0) return static_cast<int>(sent);
  *error = sent == 0 ? SocketError::kBroken : MeaningOf(errno);
  return 0;
}

bool GetLocalAddress(Socket socket, SocketAddress* address) {
  SocketAddress found{};
  socklen_t length = sizeof found;
  if (getsockname(Fd(socket), AsSystem(&found), &length) != 0) return false;
  *address = found;
  return true;
}

bool GetPeerAddress(Socket socket, SocketAddress* address) {
  SocketAddress found{};
  socklen_t length = sizeof found;
  if (getpeername(Fd(socket), AsSystem(&found), &length) != 0) return false;
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

bool LookUpHost(const char* name, std::uint32_t* address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name, nullptr, &hints, &found) != 0) return false;
  const bool usable = found != nullptr;
  if (usable) *address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
  freeaddrinfo(found);
  return usable;
}

int WaitForSockets(SocketSet* read, SocketSet* write, int timeout_ms) {
  std::vector<pollfd> entries;
  AddEntries(read, POLLIN, &entries);
  AddEntries(write, POLLOUT, &entries);
  const int result = PollUntil(&entries, timeout_ms);
  const std::size_t read_count = read == nullptr ? 0 : read->Members().size();
  if (result < 0) {
    if (read != nullptr) read->Assign({});
    if (write != nullptr) write->Assign({});
    return -1;
  }
  return KeepReady(read, entries.data()) + KeepReady(write, entries.data() + read_count);
}

}  // namespace platform
