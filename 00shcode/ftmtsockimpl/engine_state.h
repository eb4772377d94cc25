#pragma once

#include <atomic>
#include <cstdint>

#include "00shcode/ftmtsockimpl/recv_backlog.h"
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

  // A plain count: nothing else depends on its order. It may pass the limit, since forced packages
  // obey none.
  std::atomic<std::int64_t> queued_send_bytes{0};  // accepted and not yet sent

  CFTRecvBacklog recv_backlog;
};
