#pragma once

#include <time.h>

#include <cstdint>

namespace platform {

// The moment so many milliseconds from now, on the clock that nobody can set.
timespec MonotonicDeadline(std::uint32_t milliseconds);

}  // namespace platform
