#pragma once

#include <string>

#include "bench/versus/job.h"
#include "bench/versus/socket.h"
#include "bench/versus/zmq_socket.h"

namespace versus {

// The server's end of one ZeroMQ link.
class ZmqServer {
 public:
  explicit ZmqServer(const Job& job) : m_job(job), m_socket(job), m_endpoint(m_socket.Bind()) {}

  const std::string& GetEndpoint() const { return m_endpoint; }

  void Push();

  // Sends every message back until the control link ends.
  void Echo(const Socket& control);

 private:
  bool EchoAllThere();
  void TakeCommand();

  const Job m_job;
  ZmqSocket m_socket;
  const std::string m_endpoint;
};

}  // namespace versus
