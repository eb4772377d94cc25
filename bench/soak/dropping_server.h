#pragma once

#include <random>

#include "bench/versus/socket.h"

namespace soak {

// A server that sends packages back as they come and drops each link after a random number of them:
// half of the links are closed, half are reset.
class DroppingServer {
 public:
  DroppingServer(const versus::Socket* listener, unsigned seed)
      : m_listener(listener), m_random(seed) {}

  // Serves any number of links, each on a thread of its own. Does not return.
  [[noreturn]] void Run();

 private:
  const versus::Socket* const m_listener;
  std::mt19937 m_random;
};

}  // namespace soak
