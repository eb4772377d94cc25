#pragma once

#include <utility>

#include "bench/versus/job.h"
#include "bench/versus/socket.h"

namespace versus {

// The server's end of one link.
class ServerLink {
 public:
  explicit ServerLink(Socket socket) : m_socket(std::move(socket)) {}

  // Does the job that the first package tells, until the client ends the link.
  void Serve() const;

 private:
  void Push(const Job& job) const;
  void Echo() const;
  void WaitForEnd() const;
  void ServeZmq(const Job& job) const;

  Socket m_socket;
};

}  // namespace versus
