#include <windows.h>

#include <sys/timeb.h>
#include <time.h>

#include "platform/backend.h"

namespace platform {

std::uint32_t backend::TickCount() {
  return GetTickCount();
}

std::int64_t WallClockSeconds() {
  return _time64(nullptr);
}

void GetWallClock(std::int64_t* seconds, std::uint16_t* milliseconds) {
  struct __timeb64 now;
  _ftime64(&now);
  *seconds = now.time;
  *milliseconds = now.millitm;
}

bool ToLocalTime(std::int64_t seconds, LocalTime* local) {
  const __time64_t moment = seconds;
  const tm* const fields = _localtime64(&moment);  // each thread has its own
  if (fields == nullptr) return false;
  *local = {fields->tm_year + 1900, fields->tm_mon + 1, fields->tm_mday, fields->tm_hour,
            fields->tm_min,         fields->tm_sec,     fields->tm_wday};
  return true;
}

}  // namespace platform
