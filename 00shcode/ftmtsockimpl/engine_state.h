#pragma once

#include <cstdint>

#include "00shcode/mytoolkit/locked_value.h"

// What all links of one engine share. The counters may pass 2^31: forced packages obey no limit.
struct FTEngineState {
  static constexpr std::int64_t kBacklogUnit = 1000000;

  CFTLockedValue<std::int64_t> queued_send_bytes;        // accepted and not yet sent
  CFTLockedValue<std::int64_t> undelivered_recv_bytes;   // received and not yet consumed
  CFTLockedValue<std::int32_t> send_backlog_limit{800};  // in units of kBacklogUnit
  CFTLockedValue<std::int32_t> recv_backlog_limit{800};
  std::int32_t event_mode = 0;  // this and the next are set before the engine starts
  std::int32_t heartbeat_by_message = 0;
};
