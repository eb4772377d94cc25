#pragma once

#include "tests/campaign/schedule.h"
#include "tests/support/clock.h"
#include "tests/support/posix/faults.h"

namespace campaign {

// The machine under the client: its clocks, calls, descriptors, threads and standard error.
class Machine {
 public:
  Machine();
  ~Machine() { EndFaults(); }

  // True when links may lose something by it.
  bool Play(const Step& step);
  void EndFaults();
  bool LacksThreads() const { return m_threads.has_value(); }
  void LetPass(std::uint32_t milliseconds) { m_clock.Advance(milliseconds); }

 private:
  // A pipe in the place of standard error, which nobody reads.
  class DeafStderr {
   public:
    DeafStderr();
    ~DeafStderr();

   private:
    const int m_original;
    int m_ends[2] = {-1, -1};
  };

  void BreakCall(const Step& step);

  testkit::ManualClock m_clock;
  testkit::ClockShift m_wall;
  std::optional<testkit::SocketFaults> m_calls;
  std::optional<testkit::DescriptorLimit> m_descriptors;
  std::optional<testkit::ThreadLimit> m_threads;
  std::optional<DeafStderr> m_stderr;
};

}  // namespace campaign
