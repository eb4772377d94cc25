// TCP segments over IPv4, as capture files hold them. Functions without state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/capture/address.h"
#include "tools/capture/frame.h"

namespace capture {

struct TcpFlags {
  static constexpr unsigned kFin = 1;
  static constexpr unsigned kSyn = 2;
  static constexpr unsigned kRst = 4;
  static constexpr unsigned kPsh = 8;
  static constexpr unsigned kAck = 16;
};

struct TcpSegment {
  Address from;
  Address to;
  std::uint32_t sequence = 0;
  std::uint32_t acknowledged = 0;
  unsigned flags = 0;
  std::string payload;
};

// What fits into one frame.
constexpr std::size_t kMostPayload = 0xFFFF - 40;

// The whole IP packet, checksums included. The payload has at most kMostPayload bytes.
std::string MakeIpPacket(const TcpSegment& segment);

// Empty for frames that hold anything but a whole TCP segment over IPv4.
std::optional<TcpSegment> FindTcpSegment(const Frame& frame);

}  // namespace capture
