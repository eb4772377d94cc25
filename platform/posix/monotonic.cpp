#include "platform/posix/monotonic.h"

namespace platform {

timespec MonotonicDeadline(std::uint32_t milliseconds) {
  constexpr long kNanosecondsInSecond = 1000000000L;
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  const long nanoseconds = deadline.tv_nsec + static_cast<long>(milliseconds % 1000) * 1000000L;
  deadline.tv_sec += static_cast<time_t>(milliseconds / 1000) + nanoseconds / kNanosecondsInSecond;
  deadline.tv_nsec = nanoseconds % kNanosecondsInSecond;
  return deadline;
}

}  // namespace platform
