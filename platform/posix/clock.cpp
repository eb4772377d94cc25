#include <time.h>

#include "platform/backend.h"

namespace platform {

std::uint32_t backend::TickCount() {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  const auto milliseconds = static_cast<std::uint64_t>(now.tv_sec) * 1000U +
                            static_cast<std::uint64_t>(now.tv_nsec) / 1000000U;
  return static_cast<std::uint32_t>(milliseconds);
}

std::int64_t WallClockSeconds() {
  timespec now;
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now.tv_sec;
}

void GetWallClock(std::int64_t* seconds, std::uint16_t* milliseconds) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  *seconds = now.tv_sec;
  *milliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1000000);
}

bool ToLocalTime(std::int64_t seconds, LocalTime* local) {
  const auto moment = static_cast<time_t>(seconds);
  tm fields;
  if (localtime_r(&moment, &fields) == nullptr) return false;
  *local = {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
            fields.tm_min,         fields.tm_sec,     fields.tm_wday};
  return true;
}

}  // namespace platform
