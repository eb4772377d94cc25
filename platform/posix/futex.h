#pragma once

#include <time.h>

#include <atomic>
#include <cstdint>

namespace platform {

// Sleeps while the word has the value, until a wake-up or the moment on the monotonic clock (null:
// without limit). False: that moment has come. May return early, so the caller looks again.
bool FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t value,
               const timespec* deadline);

// Wakes so many of those that sleep on the word.
void FutexWake(const std::atomic<std::uint32_t>& word, int count);

}  // namespace platform
