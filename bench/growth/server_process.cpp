#include "bench/growth/server_process.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "bench/growth/echo_server.h"

namespace growth {

ServerProcess::Pipe::Pipe() {
  int ends[2];
  if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  read_end = ends[0];
  write_end = ends[1];
}

ServerProcess::ServerProcess() : m_child([this] { Serve(m_pipe); }) {
  close(m_pipe.write_end);
  const bool told = read(m_pipe.read_end, &m_port, sizeof m_port) == sizeof m_port;
  close(m_pipe.read_end);
  if (!told) throw std::runtime_error("no server");
}

ServerProcess::~ServerProcess() = default;

// Until it is killed.
void ServerProcess::Serve(const Pipe& pipe) {
  EchoServer server;
  const std::uint16_t port = server.Open();
  if (write(pipe.write_end, &port, sizeof port) != sizeof port) return;
  close(pipe.write_end);
  close(pipe.read_end);
  for (;;) pause();
}

}  // namespace growth
