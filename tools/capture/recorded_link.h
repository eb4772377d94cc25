#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/capture/direction.h"
#include "tools/capture/package_stream.h"

namespace capture {

// What happened on one link, in its order.
struct RecordedLink {
  struct Event {
    std::int64_t time_us = 0;  // since 1970-01-01 00:00 UTC
    Direction direction = Direction::kToServer;
    bool is_end = false;  // of the link, by the sender; else a package
    WirePackage package;
  };

  std::int64_t start_us = 0;
  std::vector<Event> events;
};

// The links whose beginning is in the capture file, in the order in which they began. Segments may
// be there twice or in any order, as on a network. Throws std::runtime_error when the file cannot
// be read, holds no such link, or lacks bytes of one.
std::vector<RecordedLink> ReadRecordedLinks(const std::string& path);

}  // namespace capture
