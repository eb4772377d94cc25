// What this process holds and uses, for tests of leaks and of idle costs.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace testkit {

std::size_t CountDescriptors();  // on Windows: sockets
std::size_t CountHandles();      // descriptors; on Windows whatever the system numbers
std::size_t CountThreads();      // those that were joined do not count
// User and system time of all threads so far.
std::chrono::microseconds CpuTime();

// Remembers what was held, to see that a test gave everything back:
//
//   const HeldResources before;
//   ... run, stop ...
//   EXPECT_TRUE(before.AreRestored(5s)) << before.Difference();
class HeldResources {
 public:
  HeldResources();

  // Waits for whatever is still on its way out.
  bool AreRestored(std::chrono::milliseconds limit) const;
  std::string Difference() const;

 private:
  std::size_t m_handles;
  std::size_t m_threads;
};

}  // namespace testkit
