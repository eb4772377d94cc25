#pragma once

#include "tests/campaign/machine.h"
#include "tests/support/posix/faults.h"

namespace campaign {

// A pipe in the place of standard error, which nobody reads.
class DeafStderr {
 public:
  DeafStderr();
  ~DeafStderr();

 private:
  const int m_original;
  int m_ends[2] = {-1, -1};
};

struct MachineFaults {
  testkit::ClockShift wall;  // does not go back
  std::optional<testkit::SocketFaults> calls;
  std::optional<testkit::DescriptorLimit> descriptors;
  std::optional<testkit::ThreadLimit> threads;
  std::optional<DeafStderr> deaf_stderr;
};

}  // namespace campaign
