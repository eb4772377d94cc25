#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/sock.h"
#include "00shcode/mytoolkit/clock.h"

enum FTLinkKind : std::int32_t {
  LINK_KIND_OUT = 1,  // opened by Connect
  LINK_KIND_IN = 2    // accepted by the listener
};

// Identity and addresses of one link.
struct FTLinkInfo {
  std::string link_id;  // 8 upper-case hexadecimal digits; empty: names no link
  FTSocket socket = kNoSocket;
  FTLinkKind kind = LINK_KIND_OUT;
  std::string remote_address;  // dotted
  std::uint16_t remote_port = 0;
  std::string local_address;  // dotted; empty until known
  std::uint16_t local_port = 0;
  std::int32_t priority = 1;  // weight of the messages about this link
  std::uint32_t user_value1 = 0;
  std::uint32_t user_value2 = 0;
};

// The record of a link that exists: it never changes, and everybody who needs it refers to it.
using FTLinkRecord = std::shared_ptr<const FTLinkInfo>;

enum class FTConnectStage : std::int32_t {
  kConnecting = 0,
  kFailed = 1  // has no socket any more; reported at its time-out
};

// A link being set up.
struct FTLinkReq {
  FTLinkInfo link;
  FTTime stamp;  // tick clock: connect started or connection accepted
  FTConnectStage stage = FTConnectStage::kConnecting;
  FTLinkInfo listener;    // accepted links: the listening entry; else empty
  std::int32_t done = 0;  // 1: the connector has finished with it
};

// Owners of a record and of the socket in it: who wants to keep the socket takes it out.
struct FTCloseAndDelete {
  void operator()(FTLinkInfo* listener) const;
  void operator()(FTLinkReq* req) const;
};
using FTListenerPtr = std::unique_ptr<FTLinkInfo, FTCloseAndDelete>;
using FTLinkReqPtr = std::unique_ptr<FTLinkReq, FTCloseAndDelete>;

// Why a link ended.
enum class FTCloseReason : std::int32_t {
  kNone = 0,
  kRecvTimeout = 1,
  kRecvFailed = 2,  // or ended by the peer
  kSendFailed = 4,
  kBadPkg = 5,  // too big, or not a package at all
  kOnRequest = 6,
  kUnknown = 7,  // none had been recorded when the link's thread ended
  // The send thread could not be started, or the length of a package grew while it was assembled.
  kNotStarted = 8
};

namespace ft {

// How diagnostics name a link whose thread cannot be made: "address:P" and the remote port for an
// outgoing link, "address:M" and the local port for any other.
std::string GetLinkName(const FTLinkInfo& link);

}  // namespace ft
