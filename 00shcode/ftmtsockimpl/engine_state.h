#pragma once

#include <atomic>
#include <cstdint>

#include "00shcode/ftmtsockimpl/sock_if_contract.h"

// What all links of one engine share.
struct FTEngineState {
  static constexpr std::int64_t kSendBacklogLimit = 800000000;  // bytes
  static constexpr std::int64_t kRecvBacklogLimit = 800000000;

  const FTEventMode event_mode;
  const FTHeartbeatMode heartbeat_mode;
  const FTSpaceReports space_reports;

  // Plain counts: nothing else depends on their order. They may pass the limits, since forced
  // packages obey none and a read is counted when it is over.
  std::atomic<std::int64_t> queued_send_bytes{0};       // accepted and not yet sent
  std::atomic<std::int64_t> undelivered_recv_bytes{0};  // received and not yet consumed
};
