#include "bench/versus/socket.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "bench/versus/wire.h"

namespace versus {

namespace {

template <typename Result>
Result Checked(Result result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int NewSocket() {
  return Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
}

void SendWithoutDelay(int descriptor) {
  const int on = 1;
  Checked(::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
}

}  // namespace

Socket::Socket(Socket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

Socket::~Socket() {
  if (m_descriptor >= 0) ::close(m_descriptor);
}

Socket Socket::Connect(std::uint16_t port) {
  Socket result(NewSocket());
  const sockaddr_in address = Loopback(port);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  Checked(::connect(result.Get(), generic, sizeof address), "connect");
  SendWithoutDelay(result.Get());
  return result;
}

Socket Socket::Bind() {
  Socket result(NewSocket());
  const sockaddr_in address = Loopback(0);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  Checked(::bind(result.Get(), generic, sizeof address), "bind");
  return result;
}

Socket Socket::Listen() {
  Socket result = Bind();
  Checked(::listen(result.Get(), SOMAXCONN), "listen");
  return result;
}

Socket Socket::Accept() const {
  Socket result(Checked(::accept4(m_descriptor, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
  SendWithoutDelay(result.Get());
  return result;
}

std::uint16_t Socket::GetPort() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  Checked(::getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  return ntohs(address.sin_port);
}

std::size_t Socket::Receive(char* data, std::size_t size) const {
  return static_cast<std::size_t>(Checked(::recv(m_descriptor, data, size, 0), "recv"));
}

void Socket::SendAll(const char* data, std::size_t size) const {
  while (size > 0) {
    const auto sent = Checked(::send(m_descriptor, data, size, MSG_NOSIGNAL), "send");
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
}

void Socket::SendAll(const char* head, std::size_t head_size, const char* body,
                     std::size_t size) const {
  iovec pieces[] = {{const_cast<char*>(head), head_size}, {const_cast<char*>(body), size}};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = 2;
  const auto result = Checked(::sendmsg(m_descriptor, &message, MSG_NOSIGNAL), "sendmsg");
  const auto sent = static_cast<std::size_t>(result);
  const std::size_t of_head = std::min(sent, head_size);
  SendAll(head + of_head, head_size - of_head);
  SendAll(body + (sent - of_head), size - (sent - of_head));
}

void Socket::ShutDown() const {
  ::shutdown(m_descriptor, SHUT_RDWR);
}

void Socket::SendPackage(const std::string& body) const {
  std::string package;
  AppendPackage(&package, body.data(), static_cast<std::uint32_t>(body.size()), PlainCheckSum);
  SendAll(package.data(), package.size());
}

std::string Socket::ReceivePackage() const {
  char head[kHeadBytes];
  ReceiveExactly(head, sizeof head);
  std::string body(DecodeHead(head).body_length, '\0');
  ReceiveExactly(body.data(), body.size());
  return body;
}

void Socket::ReceiveExactly(char* data, std::size_t size) const {
  while (size > 0) {
    const std::size_t received = Receive(data, size);
    if (received == 0) {
      throw std::system_error(std::make_error_code(std::errc::connection_reset), "recv");
    }
    data += received;
    size -= received;
  }
}

}  // namespace versus
