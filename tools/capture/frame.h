#pragma once

#include <cstdint>
#include <string>

namespace capture {

// What a frame begins with; the numbers are those of capture files.
enum class LinkType : std::uint16_t {
  kLoopback = 0,
  kEthernet = 1,
  kRawIp = 101,
  kLinuxCooked = 113,
  kLinuxCooked2 = 276
};

struct Frame {
  std::int64_t time_us = 0;  // since 1970-01-01 00:00 UTC
  LinkType link_type = LinkType::kRawIp;
  std::string bytes;
};

}  // namespace capture
