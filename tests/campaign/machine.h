#pragma once

#include <memory>

#include "tests/support/clock.h"

namespace campaign {

struct MachineFaults;         // those that this system can have
std::size_t HeapBytes();      // 0: the system does not tell
std::size_t ResidentBytes();  // the same

// The machine under the client: its tick clock and its faults.
class Machine {
 public:
  Machine();
  ~Machine();

  MachineFaults& Faults() { return *m_faults; }
  void EndFaults();
  bool LacksThreads() const;
  void LetPass(std::uint32_t milliseconds) { m_clock.Advance(milliseconds); }

  static const std::uint32_t kTicksWhileIdle;  // for each millisecond that brings nothing

 private:
  testkit::ManualClock m_clock;
  const std::unique_ptr<MachineFaults> m_faults;
};

}  // namespace campaign
