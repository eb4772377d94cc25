// What this process holds and uses, for tests of leaks and of idle costs.
#pragma once

#include "tests/support/threads.h"

namespace testkit {

std::size_t CountDescriptors();  // on Windows: sockets
std::size_t CountThreads();      // those that were joined do not count
// For this process and those that it starts; empty: removes the variable.
void SetVariable(const char* name, const char* value);

// Remembers what was held, to see that a test gave everything back.
class HeldResources {
 public:
  // The first thread of all may bring a sanitizer's own with it.
  HeldResources() {
    std::thread([] {}).join();
    m_before = Now();
  }

  // Waits for whatever is still on its way out.
  bool AreRestored(Milliseconds limit) const {
    return WaitUntil([this] { return Now() == m_before; }, limit);
  }
  std::string Difference() const { return "before: " + m_before + "; now: " + Now(); }

 private:
  static std::string Now() {
    return std::to_string(CountDescriptors()) + " descriptors, " + std::to_string(CountThreads()) +
           " threads";
  }

  std::string m_before;
};

}  // namespace testkit
