#pragma once

#include <cstdint>
#include <string>

#include "00shcode/ftmtsockimpl/sock.h"
#include "00shcode/mytoolkit/clock.h"

constexpr std::int32_t LINK_KIND_OUT = 1;  // opened by Connect
constexpr std::int32_t LINK_KIND_IN = 2;   // accepted by the listener

// Identity and addresses of one link. A record in a message belongs to the message's receiver.
struct FTLinkInfo {
  std::string link_id;  // 8 upper-case hexadecimal digits; empty: names no link
  FTSocket socket = kNoSocket;
  std::int32_t kind = LINK_KIND_OUT;
  std::string remote_address;  // dotted
  std::uint16_t remote_port = 0;
  std::string local_address;  // dotted; empty until known
  std::uint16_t local_port = 0;
  std::int32_t priority = 1;  // weight of the messages about this link
  std::uint32_t user_value1 = 0;
  std::uint32_t user_value2 = 0;
};

constexpr std::int32_t kStageConnecting = 0;
constexpr std::int32_t kStageConnectFailed = 1;  // has no socket any more, reported at its time-out
constexpr std::int32_t kStageAccepted = 2;

// A link being set up.
struct FTLinkReq {
  FTLinkInfo link;
  FTTime stamp;  // tick clock: connect started or connection accepted
  std::int32_t stage = kStageConnecting;
  FTLinkInfo listener;    // accepted links: the listening entry; else empty
  std::int32_t done = 0;  // 1: the connector has finished with it
};

// How diagnostics name a link whose thread cannot be made: "address:P" and the remote port for an
// outgoing link, "address:M" and the local port for any other.
std::string GetLinkName(const FTLinkInfo& link);

void CloseSocketOf(FTLinkInfo* link);
