#pragma once

#include <atomic>

#include "tests/support/hooks.h"

namespace testkit {

// While it lives the process can start only so many more threads; every later attempt fails as it
// does when the system has no more. One at a time.
class ThreadLimit {
 public:
  explicit ThreadLimit(int more) {
    LinkHooks();
    s_refused = 0;
    s_remaining = more;
  }
  ~ThreadLimit() { s_remaining = kNone; }
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

  // Attempts that failed because of the limit.
  int RefusedCount() const { return s_refused; }

  // For the hook: false when the limit is reached; otherwise one thread fewer is left.
  static bool TakePlace() {
    int remaining = s_remaining;
    while (remaining > 0 && !s_remaining.compare_exchange_weak(remaining, remaining - 1)) {
    }
    if (remaining == 0) ++s_refused;
    return remaining != 0;
  }

 private:
  static constexpr int kNone = -1;

  static inline std::atomic<int> s_remaining{kNone};
  static inline std::atomic<int> s_refused{0};
};

}  // namespace testkit
