#include "00shcode/mytoolkit/clock.h"

#include "platform/platform.h"

namespace {

// 2^32 ms, the counter's period.
constexpr std::int64_t kPeriodSeconds = 4294967;
constexpr std::uint16_t kPeriodMilliseconds = 296;

struct TickClock {
  CFTLock lock;
  CFTTickUnwrapper unwrapper FT_GUARDED_BY(lock);
};

// Never destroyed: threads of a client that still runs read it while the process exits.
TickClock& TheTickClock() {
  static auto* const clock = new TickClock;
  return *clock;
}

void Store(int* output, int value) {
  if (output != nullptr) *output = value;
}

}  // namespace

bool operator==(const FTTime& a, const FTTime& b) {
  return a.seconds == b.seconds && a.milliseconds == b.milliseconds;
}

bool operator!=(const FTTime& a, const FTTime& b) {
  return !(a == b);
}

bool operator<(const FTTime& a, const FTTime& b) {
  if (a.seconds != b.seconds) return a.seconds < b.seconds;
  return static_cast<std::int16_t>(a.milliseconds) < static_cast<std::int16_t>(b.milliseconds);
}

std::int32_t ft::DiffMs(const FTTime& a, const FTTime& b) {
  const std::uint32_t seconds =
      static_cast<std::uint32_t>(a.seconds) - static_cast<std::uint32_t>(b.seconds);
  const std::int32_t milliseconds =
      static_cast<std::int16_t>(a.milliseconds) - static_cast<std::int16_t>(b.milliseconds);
  return static_cast<std::int32_t>(seconds * 1000U + static_cast<std::uint32_t>(milliseconds));
}

std::int64_t ft::ElapsedMs(const FTTime& now, const FTTime& then) {
  return (now.seconds - then.seconds) * 1000 + (now.milliseconds - then.milliseconds);
}

FTTime ft::GetNowTime() {
  FTTime now;
  platform::GetWallClock(&now.seconds, &now.milliseconds);
  return now;
}

void ft::GetNowTime(std::int64_t* seconds, std::uint16_t* milliseconds) {
  const FTTime now = ft::GetNowTime();
  if (seconds != nullptr) *seconds = now.seconds;
  if (milliseconds != nullptr) *milliseconds = now.milliseconds;
}

FTTime CFTTickUnwrapper::Read(std::uint32_t counter) {
  FTTime reading{counter / 1000, static_cast<std::uint16_t>(counter % 1000)};
  if (!m_started) {
    m_started = true;
    m_last = reading;
  }
  while (reading < m_last) {
    reading.seconds += kPeriodSeconds;
    reading.milliseconds = static_cast<std::uint16_t>(reading.milliseconds + kPeriodMilliseconds);
  }
  m_last = reading;
  return reading;
}

FTTime ft::GetTickTime() {
  TickClock& clock = TheTickClock();
  const CFTScopedLock guard(&clock.lock);
  return clock.unwrapper.Read(platform::TickCount());
}

void ft::SplitLocalTime(std::int64_t seconds, int* year, int* month, int* day, int* hour,
                        int* minute, int* second, int* weekday) {
  platform::LocalTime local;
  if (!platform::ToLocalTime(seconds, &local)) return;
  Store(year, local.year);
  Store(month, local.month);
  Store(day, local.day);
  Store(hour, local.hour);
  Store(minute, local.minute);
  Store(second, local.second);
  Store(weekday, local.weekday == 0 ? 7 : local.weekday);
}

void ft::Sleep(std::uint32_t milliseconds) {
  platform::SleepMs(milliseconds);
}
