#include "bench/versus/zmq_socket.h"

#include <zmq.h>

#include <cstring>
#include <stdexcept>

#include "bench/versus/socket.h"
#include "bench/versus/wire.h"

namespace versus {

namespace {

void Check(bool succeeded) {
  if (!succeeded) throw std::runtime_error(zmq_strerror(zmq_errno()));
}

}  // namespace

ZmqSocket::ZmqSocket(const Job& job)
    : m_context(zmq_ctx_new()), m_socket(zmq_socket(m_context, ZMQ_PAIR)) {
  Check(m_socket != nullptr);
  const int messages = static_cast<int>(job.GetOutstanding()) + 1;
  SetOption(ZMQ_SNDHWM, messages);
  SetOption(ZMQ_RCVHWM, messages);
  SetOption(ZMQ_SNDTIMEO, kPatienceMs);
  SetOption(ZMQ_RCVTIMEO, kPatienceMs);
  SetOption(ZMQ_LINGER, 0);
}

ZmqSocket::~ZmqSocket() {
  zmq_close(m_socket);
  zmq_ctx_term(m_context);
}

std::string ZmqSocket::Bind() {
  Check(zmq_bind(m_socket, "tcp://127.0.0.1:*") == 0);
  char endpoint[64];
  std::size_t size = sizeof endpoint;
  Check(zmq_getsockopt(m_socket, ZMQ_LAST_ENDPOINT, endpoint, &size) == 0);
  return endpoint;
}

void ZmqSocket::Connect(const std::string& endpoint) {
  Check(zmq_connect(m_socket, endpoint.c_str()) == 0);
}

bool ZmqSocket::Send(const char* body, std::uint32_t length, std::uint32_t check_sum) {
  zmq_msg_t message;
  Check(zmq_msg_init_size(&message, kZmqHeadBytes + length) == 0);
  char* const data = static_cast<char*>(zmq_msg_data(&message));
  StoreBigEndian(check_sum, data);
  std::memcpy(data + kZmqHeadBytes, body, length);
  const bool sent = zmq_msg_send(&message, m_socket, 0) >= 0;
  if (!sent) zmq_msg_close(&message);
  return sent;
}

void ZmqSocket::SetOption(int option, int value) {
  Check(zmq_setsockopt(m_socket, option, &value, sizeof value) == 0);
}

}  // namespace versus
