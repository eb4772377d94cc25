#pragma once

namespace campaign {

// While it lives, this thread's allocations fail: the n-th one, and count - 1 after it. Does
// nothing in builds whose sanitizer has a heap of its own.
class MemoryLimit {
 public:
  MemoryLimit(int nth, int count) {
    s_before = nth - 1;
    s_failing = count;
  }
  ~MemoryLimit() { s_before = s_failing = 0; }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;

  static bool Refuses();

 private:
  static inline thread_local int s_before = 0, s_failing = 0;
};

}  // namespace campaign
