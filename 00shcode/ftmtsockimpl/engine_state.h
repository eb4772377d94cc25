#pragma once

#include <atomic>
#include <cstdint>

#include "00shcode/ftmtsockimpl/sock_if_contract.h"

// What all links of one engine share.
struct FTEngineState {
  static constexpr std::int64_t kSendBacklogLimit = 800000000;  // bytes

  // What a package occupies on its way to the protocol object, beside its bytes. The lists of
  // messages that it passes have room for more than are in them.
  static constexpr std::int64_t kPkgCost = ft::kBlockCost + 3 * sizeof(FTMsg);

  const FTEventMode event_mode;
  const FTHeartbeatMode heartbeat_mode;
  const FTSpaceReports space_reports;

  // Plain counts: nothing else depends on their order. They may pass the limits, since forced
  // packages obey none and what a read has brought is counted when it is over.
  std::atomic<std::int64_t> queued_send_bytes{0};  // accepted and not yet sent
  // What waits for the protocol object in event mode kByMessage, or is kept by it. Bytes that are
  // no package yet do not count: their links could never complete them.
  std::atomic<std::int64_t> undelivered_recv_bytes{0};
};
