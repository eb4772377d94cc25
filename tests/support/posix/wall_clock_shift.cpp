#include "tests/support/wall_clock_shift.h"

#include <dlfcn.h>
#include <time.h>

#include <atomic>

namespace {

using ClockGetTime = int (*)(clockid_t, timespec*);

std::atomic<std::int64_t> g_shift_seconds{0};
std::atomic<ClockGetTime> g_system_call{nullptr};

ClockGetTime SystemCall() {
  ClockGetTime call = g_system_call.load(std::memory_order_acquire);
  if (call == nullptr) {
    call = reinterpret_cast<ClockGetTime>(dlsym(RTLD_NEXT, "clock_gettime"));
    g_system_call.store(call, std::memory_order_release);
  }
  return call;
}

}  // namespace

// Stands before the C library's function of this name in every program that holds this object.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const int result = SystemCall()(clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) now->tv_sec += g_shift_seconds.load();
  return result;
}

namespace testkit {

WallClockShift::~WallClockShift() {
  g_shift_seconds = 0;
}

void WallClockShift::Advance(std::int64_t seconds) {
  g_shift_seconds += seconds;
}

}  // namespace testkit
