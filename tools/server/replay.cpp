#include "tools/server/replay.h"

#include <algorithm>

namespace {

using capture::Direction;
using capture::RecordedLink;

constexpr std::int64_t kHeartbeatIsDueUs = 17000000;

}  // namespace

Replay::Replay(const RecordedLink& link) {
  std::int64_t reference_us = link.start_us;
  std::int64_t sent_us = link.start_us;
  bool was_silent = false;  // for longer than a server that sends heartbeats
  for (const RecordedLink::Event& event : link.events) {
    const bool from_server = event.direction == Direction::kToApplication;
    was_silent = was_silent || event.time_us - sent_us >= kHeartbeatIsDueUs;
    if (from_server) sent_us = event.time_us;
    const bool sound = event.package.verdict == capture::WirePackage::Verdict::kSound;
    if (!event.is_end && event.package.IsHeartbeat()) {
      heartbeats = heartbeats || from_server;
    } else if (from_server) {
      steps.push_back({requests.size(),
                       std::max<std::int64_t>(event.time_us - reference_us, 0),
                       {event.package.wire, event.is_end}});
      reference_us = event.time_us;
    } else if (!event.is_end && sound) {
      requests.push_back(event.package.GetBody());
      reference_us = event.time_us;
    }
  }
  heartbeats = heartbeats || !was_silent;
}
