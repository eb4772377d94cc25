#include "bench/soak/dropping_server.h"

#include <sys/socket.h>

#include <exception>
#include <thread>
#include <utility>

namespace soak {

namespace {

constexpr int kMostPackages = 600;  // what a link of ours takes two seconds for

void Serve(versus::Socket link, int packages, bool reset) {
  try {
    while (packages-- > 0) link.SendPackage(link.ReceivePackage());
  } catch (const std::exception&) {
    return;  // the client has ended the link
  }
  const linger at_once{1, 0};
  if (reset) setsockopt(link.Get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

}  // namespace

void DroppingServer::Run() {
  std::uniform_int_distribution<int> packages(0, kMostPackages);
  std::bernoulli_distribution reset;
  for (;;) {
    std::thread(Serve, m_listener->Accept(), packages(m_random), reset(m_random)).detach();
  }
}

}  // namespace soak
