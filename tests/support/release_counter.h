#pragma once

#include <chrono>

#include "00shcode/mytoolkit/buffer.h"

namespace testkit {

// A release function for SendPkg that counts its calls since the counter was made. One at a time.
class ReleaseCounter {
 public:
  ReleaseCounter();

  static void Release(CFTBuffer* buffer);  // any thread

  int Count() const;
  // Waits until there were exactly this many calls.
  bool Reaches(int count, std::chrono::milliseconds limit) const;
};

}  // namespace testkit
