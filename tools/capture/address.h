#pragma once

#include <cstdint>
#include <string>

#include "00shcode/ftmtsockimpl/sock.h"
#include "tools/common/endpoint.h"

namespace capture {

// One end of a link, in host byte order.
struct Address {
  std::uint32_t ip = 0;
  std::uint16_t port = 0;

  friend bool operator==(const Address& a, const Address& b) {
    return a.ip == b.ip && a.port == b.port;
  }
};

Address MakeAddress(const FTSockAddr& address);
Address MakeAddress(const Endpoint& endpoint);  // with a dotted address

std::string ShowAddress(const Address& address);

}  // namespace capture
