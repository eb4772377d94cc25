// Waits on the clock that nobody can set.
#pragma once

#include <pthread.h>
#include <time.h>

#include <cstdint>

namespace platform {

timespec MonotonicDeadline(std::uint32_t milliseconds);

// For pthread_cond_timedwait with such a deadline.
void InitMonotonicCondition(pthread_cond_t* condition);

}  // namespace platform
