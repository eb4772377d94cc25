#include "bench/versus/zmq_server.h"

#include <zmq.h>

#include <stdexcept>
#include <vector>

#include "bench/versus/body_set.h"
#include "bench/versus/wire.h"

namespace versus {

// The client begins its job with the same command as on a plain link.
void ZmqServer::TakeCommand() {
  if (zmq_recv(m_socket.Get(), nullptr, 0, 0) < 0) throw std::runtime_error("no command");
}

void ZmqServer::Push() {
  const BodySet bodies(m_job.bodies, m_job.size);
  std::vector<std::uint32_t> check_sums;
  for (std::uint32_t i = 0; i < bodies.GetCount(); ++i) {
    check_sums.push_back(PlainCheckSum(bodies.Of(i).data(), m_job.size));
  }
  TakeCommand();
  for (std::uint64_t n = 0; n < m_job.count; ++n) {
    const std::uint32_t damage = m_job.IsDamaged(n) ? 1 : 0;
    const std::uint32_t check_sum = check_sums[n % check_sums.size()] ^ damage;
    if (!m_socket.Send(bodies.Of(n).data(), m_job.size, check_sum)) {
      throw std::runtime_error("the client does not take its messages");
    }
  }
}

void ZmqServer::Echo(const Socket& control) {
  TakeCommand();
  for (;;) {
    zmq_pollitem_t ready[] = {{m_socket.Get(), 0, ZMQ_POLLIN, 0},
                              {nullptr, control.Get(), ZMQ_POLLIN, 0}};
    if (zmq_poll(ready, 2, -1) < 0 || ready[1].revents != 0 || !EchoAllThere()) return;
  }
}

// False: the client does not take its answers.
bool ZmqServer::EchoAllThere() {
  zmq_msg_t message;
  zmq_msg_init(&message);
  bool sent = true;
  while (sent && zmq_msg_recv(&message, m_socket.Get(), ZMQ_DONTWAIT) >= 0) {
    sent = zmq_msg_send(&message, m_socket.Get(), 0) >= 0;
  }
  zmq_msg_close(&message);
  return sent;
}

}  // namespace versus
