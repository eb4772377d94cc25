#include <windows.h>

#include <sys/timeb.h>
#include <time.h>

#include <atomic>

#include "platform/platform.h"

namespace platform {

namespace {

std::uint32_t SystemTickCount() {
  return GetTickCount();
}

std::atomic<std::uint32_t (*)()> g_tick_counter{&SystemTickCount};

}  // namespace

std::uint32_t TickCount() {
  return g_tick_counter.load(std::memory_order_acquire)();
}

void SetTickCounter(std::uint32_t (*counter)()) {
  g_tick_counter.store(counter != nullptr ? counter : &SystemTickCount, std::memory_order_release);
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
