// As far as one can get: the application's thread reads and verifies, and hands nothing on.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include "bench/versus/contender.h"
#include "bench/versus/socket.h"
#include "bench/versus/wire.h"

namespace versus {

namespace {

class LimitContender : public Contender {
 public:
  LimitContender(std::uint16_t port, std::uint32_t size)
      : m_socket(Socket::Connect(port)),
        m_buffer(std::max<std::size_t>(kReadBytes, kHeadBytes + size)) {}

  bool Send(const char* body, std::uint32_t length) override {
    AppendPackage(&m_waiting, body, length, FastCheckSum);
    return true;
  }

  bool Take(Body* body) override {
    while (!Cut(body)) {
      if (!Exchange()) return false;
    }
    return true;
  }

  void Free(const Body&) override {}

 private:
  static constexpr std::size_t kReadBytes = 65536;

  bool Cut(Body* body) {
    while (m_end - m_begin >= kHeadBytes) {
      char* const package = m_buffer.data() + m_begin;
      const Head head = DecodeHead(package);
      if (m_end - m_begin < kHeadBytes + head.body_length) return false;
      *body = {package + kHeadBytes, head.body_length};
      m_begin += kHeadBytes + head.body_length;
      if (FastCheckSum(body->data, body->length) == head.check_sum) return true;
    }
    return false;
  }

  // Writes and reads what the socket takes and has. It never waits for writing alone: the server
  // may be waiting for its answers to be read.
  bool Exchange() {
    if (m_sent == m_outgoing.size()) {
      m_outgoing.clear();
      m_outgoing.swap(m_waiting);
      m_sent = 0;
    }
    const bool writes = m_sent < m_outgoing.size();
    pollfd ready{m_socket.Get(), static_cast<short>(writes ? POLLIN | POLLOUT : POLLIN), 0};
    // A socket is nearly always writable: then trying costs less than asking.
    if (!writes || !Write()) {
      if (::poll(&ready, 1, kPatienceMs) <= 0) return false;
    }
    return Read();
  }

  // True: something was written.
  bool Write() {
    const auto sent = ::send(m_socket.Get(), m_outgoing.data() + m_sent, m_outgoing.size() - m_sent,
                             MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) return ThrowUnlessAgain(), false;
    m_sent += static_cast<std::size_t>(sent);
    return true;
  }

  // False: the link is gone.
  bool Read() {
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    const auto received =
        ::recv(m_socket.Get(), m_buffer.data() + m_end, m_buffer.size() - m_end, MSG_DONTWAIT);
    if (received < 0) return ThrowUnlessAgain(), true;
    m_end += static_cast<std::size_t>(received);
    return received > 0;
  }

  static void ThrowUnlessAgain() {
    if (errno != EAGAIN) throw std::system_error(errno, std::generic_category(), "limit");
  }

  const Socket m_socket;
  std::string m_waiting;
  std::string m_outgoing;
  std::size_t m_sent = 0;  // of what is outgoing
  std::vector<char> m_buffer;
  std::size_t m_begin = 0;  // in the buffer: what is read and not cut
  std::size_t m_end = 0;
};

}  // namespace

const char* const kContenderName = "limit";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job& job) {
  return std::make_unique<LimitContender>(port, job.size);
}

}  // namespace versus
