#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "platform/backend.h"
#include "platform/posix/descriptor.h"

namespace platform {

namespace {

static_assert(sizeof(SocketAddress) == sizeof(sockaddr_in) && kFamilyInet == AF_INET);
static_assert(offsetof(SocketAddress, port) == offsetof(sockaddr_in, sin_port));
static_assert(offsetof(SocketAddress, address) == offsetof(sockaddr_in, sin_addr));

int Fd(Socket socket) {
  return static_cast<int>(socket);
}

const sockaddr* AsSystem(const SocketAddress* address) {
  return reinterpret_cast<const sockaddr*>(address);
}

sockaddr* AsSystem(SocketAddress* address) {
  return reinterpret_cast<sockaddr*>(address);
}

void SendSmallPackagesAtOnce(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
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

// Negative numbers are left out. False when the wait failed, or one of the numbers is not open.
bool Poll(pollfd* entries, std::size_t count, int timeout_ms, SocketError* error) {
  if (poll(entries, count, timeout_ms) < 0) {
    *error = MeaningOf(errno);
    return false;
  }
  const bool closed = std::any_of(entries, entries + count, [](const pollfd& entry) {
    return (entry.revents & POLLNVAL) != 0;
  });
  if (closed) *error = SocketError::kBroken;
  return !closed;
}

template <typename Piece>
msghdr MessageOf(const Piece* pieces, int count, iovec* parts) {
  for (int i = 0; i < count; ++i) {
    parts[i] = {const_cast<void*>(pieces[i].data), static_cast<std::size_t>(pieces[i].length)};
  }
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = static_cast<std::size_t>(count);
  return message;
}

}  // namespace

SocketError MeaningOf(int system_error) {
  switch (system_error) {
    case 0:
      return SocketError::kNone;
    case EAGAIN:
      return SocketError::kWouldBlock;
    case EINPROGRESS:
      return SocketError::kInProgress;
    case EINTR:
      return SocketError::kInterrupted;
    case ECONNREFUSED:
      return SocketError::kRefused;
    case ECONNABORTED:
    case EPROTO:
      return SocketError::kAborted;
    default:
      return SocketError::kBroken;
  }
}

void StartSockets() {}

Socket OpenTcpSocket() {
  const int fd = AboveStandardStreams(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
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

bool BindSocket(Socket socket, const SocketAddress& local) {
  return local.address != kNoAddress && bind(Fd(socket), AsSystem(&local), sizeof local) == 0;
}

bool ListenOn(Socket socket, const SocketAddress& local) {
  const int on = 1;
  setsockopt(Fd(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  return BindSocket(socket, local) && listen(Fd(socket), SOMAXCONN) == 0;
}

Socket backend::Accept(Socket listening, SocketAddress* peer, SocketError* error) {
  SocketAddress address{};
  socklen_t length = sizeof address;
  const int fd =
      AboveStandardStreams(accept4(Fd(listening), AsSystem(&address), &length, SOCK_CLOEXEC));
  if (fd < 0) {
    *error = MeaningOf(errno);
    return kNoSocket;
  }
  SendSmallPackagesAtOnce(fd);
  *peer = address;
  return fd;
}

SocketError backend::Connect(Socket socket, const SocketAddress& remote) {
  const int result = connect(Fd(socket), AsSystem(&remote), sizeof remote);
  return result == 0 ? SocketError::kNone : MeaningOf(errno);
}

bool backend::TakeSuccess(Socket socket) {
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(Fd(socket), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
}

// The system's own pieces have the same two fields, but not the same types.
int backend::Receive(Socket socket, const BytePiece* pieces, int count, SocketError* error) {
  iovec parts[kMaxPieces];
  msghdr message = MessageOf(pieces, count, parts);
  const ssize_t received = recvmsg(Fd(socket), &message, 0);
  if (received > 0) return static_cast<int>(received);
  *error = received == 0 ? SocketError::kBroken : MeaningOf(errno);
  return 0;
}

int backend::Send(Socket socket, const ConstBytePiece* pieces, int count, SocketError* error) {
  iovec parts[kMaxPieces];
  const msghdr message = MessageOf(pieces, count, parts);
  const ssize_t sent = sendmsg(Fd(socket), &message, MSG_NOSIGNAL);
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

int backend::Wait(SocketSet* read, SocketSet* write, Socket extra, int timeout_ms,
                  SocketError* error) {
  std::vector<pollfd> entries;
  AddEntries(read, POLLIN, &entries);
  AddEntries(write, POLLOUT, &entries);
  entries.push_back({Fd(extra), POLLIN, 0});
  if (!Poll(entries.data(), entries.size(), timeout_ms, error)) return -1;
  const std::size_t read_count = read == nullptr ? 0 : read->Members().size();
  return KeepReady(read, entries.data()) + KeepReady(write, entries.data() + read_count);
}

int backend::WaitForOne(Socket socket, Readiness readiness, Socket extra, int timeout_ms,
                        SocketError* error) {
  const short events = readiness == Readiness::kReadable ? POLLIN : POLLOUT;
  pollfd entries[] = {{Fd(socket), events, 0}, {Fd(extra), POLLIN, 0}};
  if (!Poll(entries, 2, timeout_ms, error)) return -1;
  return entries[0].revents != 0 ? 1 : 0;
}

Socket backend::OpenSignal() {
  return AboveStandardStreams(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

void backend::Signal(Socket signal) {
  eventfd_write(Fd(signal), 1);
}

void backend::Unsignal(Socket signal) {
  eventfd_t count = 0;
  eventfd_read(Fd(signal), &count);
}

void backend::CloseSignal(Socket signal) {
  close(Fd(signal));
}

}  // namespace platform
