#include "tools/capture/address.h"

#include "tools/capture/byte_order.h"

namespace capture {

Address MakeAddress(const FTSockAddr& address) {
  const std::string bytes(reinterpret_cast<const char*>(&address.address), sizeof address.address);
  return {Load(bytes, 0, bytes.size(), ByteOrder::kBig), platform::PortToHost(address.port)};
}

Address MakeAddress(const Endpoint& endpoint) {
  FTSockAddr address;
  FTSockInitAddr(&address, static_cast<std::uint16_t>(endpoint.port), endpoint.host.c_str(),
                 platform::kFamilyInet);
  return MakeAddress(address);
}

std::string ShowAddress(const Address& address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(address.ip >> shift & 0xFF) + (shift > 0 ? "." : ":");
  }
  return text + std::to_string(address.port);
}

}  // namespace capture
