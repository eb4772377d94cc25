#pragma once

#include <cstdint>

#include "00shcode/mytoolkit/lock.h"

// A moment on the wall clock (since 1970-01-01 00:00 UTC) or on the tick clock (since an arbitrary
// origin). A tick reading behind a counter wrap may have more than 999 milliseconds.
struct FTTime {
  std::int64_t seconds = 0;
  std::uint16_t milliseconds = 0;
};

bool operator==(const FTTime& a, const FTTime& b);
bool operator!=(const FTTime& a, const FTTime& b);
bool operator<(const FTTime& a, const FTTime& b);

namespace ft {

// a - b in milliseconds, in 32-bit arithmetic that wraps: good for differences below 24.8 days.
std::int32_t DiffMs(const FTTime& a, const FTTime& b);

// now - then in milliseconds, however long that was: a machine may sleep for months.
std::int64_t ElapsedMs(const FTTime& now, const FTTime& then);

// Wall clock.
FTTime GetNowTime();
// The same; either pointer may be null.
void GetNowTime(std::int64_t* seconds, std::uint16_t* milliseconds);

// The process's one monotonic clock: no reading lies before one that any thread got earlier.
FTTime GetTickTime();

// The local calendar fields of a wall-clock reading: month 1 to 12, weekday 1 (Monday) to 7.
// Fills the outputs that are not null, or none when the time cannot be converted.
void SplitLocalTime(std::int64_t seconds, int* year, int* month, int* day, int* hour, int* minute,
                    int* second, int* weekday);

// Blocks the calling thread.
void Sleep(std::uint32_t milliseconds);

}  // namespace ft

// Makes readings of a counter that wraps after 2^32 ms monotonic. Not locked.
class CFTTickUnwrapper {
 public:
  FTTime Read(std::uint32_t counter);

 private:
  bool m_started = false;
  FTTime m_last;
};
