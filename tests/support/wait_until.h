#pragma once

#include <chrono>
#include <thread>

namespace testkit {

// For states that announce nothing when they change: asks again every few milliseconds. Returns
// whether the predicate held within the limit; it is asked at least once, and once at the end.
template <typename Predicate>
bool WaitUntil(Predicate predicate, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= deadline) return predicate();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace testkit
