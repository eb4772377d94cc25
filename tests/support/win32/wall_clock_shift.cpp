#include "tests/support/wall_clock_shift.h"

#include <sys/timeb.h>

#include <atomic>

#include "tests/support/win32/import.h"

namespace testkit {

namespace {

std::atomic<std::int64_t> g_shift_seconds{0};

void __cdecl GetTime(struct __timeb64* now) {
  static const auto next = SystemFunction<decltype(&GetTime)>("msvcrt.dll", "_ftime64");
  next(now);
  now->time += g_shift_seconds.load();
}

}  // namespace

decltype(&GetTime) g_import_of_ftime __asm__("__imp___ftime64") = &GetTime;

WallClockShift::~WallClockShift() {
  g_shift_seconds = 0;
}

void WallClockShift::Advance(std::int64_t seconds) {
  g_shift_seconds += seconds;
}

}  // namespace testkit
