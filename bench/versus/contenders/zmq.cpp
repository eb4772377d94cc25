// ZeroMQ with its own framing: its I/O thread hands over, the application's thread verifies.
#include <zmq.h>

#include <stdexcept>
#include <string>

#include "bench/versus/contender.h"
#include "bench/versus/socket.h"
#include "bench/versus/wire.h"
#include "bench/versus/zmq_socket.h"

namespace versus {

namespace {

class ZmqContender : public Contender {
 public:
  // The server opens its ZeroMQ socket for a job that it is told over a plain link, and closes it
  // when that link ends.
  ZmqContender(std::uint16_t port, const Job& job)
      : m_control(Socket::Connect(port)), m_socket(job) {
    zmq_msg_init(&m_message);
    m_control.SendPackage("zmq " + job.Command());
    m_socket.Connect(m_control.ReceivePackage());
  }

  ~ZmqContender() override { zmq_msg_close(&m_message); }

  bool Send(const char* body, std::uint32_t length) override {
    return m_socket.Send(body, length, PlainCheckSum(body, length));
  }

  bool Take(Body* body) override {
    for (;;) {
      if (zmq_msg_recv(&m_message, m_socket.Get(), 0) < 0) return false;
      char* const data = static_cast<char*>(zmq_msg_data(&m_message));
      const auto size = static_cast<std::uint32_t>(zmq_msg_size(&m_message));
      if (size < kZmqHeadBytes) continue;
      *body = {data + kZmqHeadBytes, size - kZmqHeadBytes};
      if (PlainCheckSum(body->data, body->length) == LoadBigEndian(data)) return true;
    }
  }

  void Free(const Body&) override {
    zmq_msg_close(&m_message);
    zmq_msg_init(&m_message);
  }

 private:
  const Socket m_control;
  ZmqSocket m_socket;
  zmq_msg_t m_message;
};

}  // namespace

const char* const kContenderName = "zmq";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job& job) {
  return std::make_unique<ZmqContender>(port, job);
}

}  // namespace versus
