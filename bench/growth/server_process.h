#pragma once

#include <cstdint>

#include "bench/common/child.h"
#include "bench/common/process.h"

namespace growth {

// An EchoServer in a process of its own. To be made while this process has one thread.
class ServerProcess {
 public:
  ServerProcess();
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  std::uint16_t GetPort() const { return m_port; }
  bench::Process GetProcess() const { return bench::Process(m_child.GetId()); }

  // The system closes all its links at once.
  void Kill() { m_child.Kill(); }

 private:
  struct Pipe {
    Pipe();
    int read_end;
    int write_end;
  };

  static void Serve(const Pipe& pipe);

  Pipe m_pipe;
  bench::Child m_child;
  std::uint16_t m_port = 0;
};

}  // namespace growth
