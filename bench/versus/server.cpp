// The server of all contenders. Prints the port it listens on and serves any number of links, each
// on a thread of its own, until its standard input ends. The first package of a link is its job.
#include <cstdio>
#include <exception>
#include <thread>

#include "bench/versus/server_link.h"
#include "bench/versus/socket.h"

namespace {

void Accept(const versus::Socket& listener) {
  for (;;) {
    std::thread([link = versus::ServerLink(listener.Accept())] { link.Serve(); }).detach();
  }
}

}  // namespace

int main() {
  try {
    static const versus::Socket listener = versus::Socket::Listen();
    std::printf("%d\n", listener.GetPort());
    std::fflush(stdout);
    std::thread([] { Accept(listener); }).detach();
    while (std::getchar() != EOF) {
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "versus_server: %s\n", error.what());
    return 1;
  }
  std::quick_exit(0);
}
