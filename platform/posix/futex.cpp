#include "platform/posix/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

bool FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t value,
               const timespec* deadline) {
  // Of all the waits this one takes a moment and not a length.
  const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, value, deadline, nullptr,
                              FUTEX_BITSET_MATCH_ANY);
  return result == 0 || errno != ETIMEDOUT;
}

void FutexWake(const std::atomic<std::uint32_t>& word, int count) {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

}  // namespace platform
