#pragma once

#include <atomic>
#include <chrono>

#include "00shcode/mytoolkit/buffer.h"
#include "tests/support/wait_until.h"

namespace testkit {

// A release function for SendPkg that counts its calls since the counter was made. One at a time.
class ReleaseCounter {
 public:
  ReleaseCounter() { s_count = 0; }

  // Any thread.
  static void Release(CFTBuffer* buffer) {
    ReleaseFTBuffer(buffer);
    ++s_count;
  }

  int Count() const { return s_count; }
  // Waits until there were exactly this many calls.
  bool Reaches(int count, std::chrono::milliseconds limit) const {
    return WaitUntil([&] { return s_count == count; }, limit);
  }

 private:
  static inline std::atomic<int> s_count{0};
};

}  // namespace testkit
