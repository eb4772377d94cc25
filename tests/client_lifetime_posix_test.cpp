// What only hosts of this kind of system do to a client: fork, and send signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientOfAPosixHost : public ClientTest {};

std::set<int> OpenSockets() {
  std::set<int> sockets;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) sockets.insert(descriptor);
  }
  return sockets;
}

TEST_F(ClientOfAPosixHost, ChildProcessesInheritNoSocket) {
  const std::set<int> before = OpenSockets();
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  const std::set<int> linked = OpenSockets();
  EXPECT_EQ(linked.size(), before.size() + 3) << "the server's and both ends of the link";
  for (const int socket : linked) {
    if (before.count(socket) == 0) {
      EXPECT_EQ(fcntl(socket, F_GETFD), FD_CLOEXEC) << socket;
    }
  }
}

std::atomic<int> g_signals{0};

// Interrupts each of the client's threads.
void SendSignals() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::ifstream(task.path() / "comm") >> name;
    if (name.rfind("CFT", 0) != 0) continue;
    syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGUSR1);
  }
}

TEST_F(ClientOfAPosixHost, SignalsOfTheHostBreakNoLink) {
  struct sigaction on_signal {};  // no call is resumed
  on_signal.sa_handler = [](int) { ++g_signals; };
  struct sigaction earlier {};
  sigaction(SIGUSR1, &on_signal, &earlier);
  EchoServer server;
  std::atomic<bool> done{false};
  std::thread shower([&] {
    for (; !done; std::this_thread::sleep_for(500us)) SendSignals();
  });
  LinkWith(server);
  for (std::uint32_t i = 0; i < 300; ++i) {
    const Bytes body = PatternBody(i % 10 == 0 ? 500000 : 100, i);
    EXPECT_EQ(Ask(body), 0);
    EXPECT_TRUE(m_window.Next(5s) == Package(body)) << i;
    if (HasFailure()) break;
  }
  m_client.UnLink();
  done = true;
  shower.join();
  EXPECT_GT(g_signals, 100);
  EXPECT_EQ(server.Fault(), "");
  sigaction(SIGUSR1, &earlier, nullptr);
}

}  // namespace
}  // namespace testkit
