#include "machine.h"

#include <fcntl.h>
#include <malloc.h>

#include "tests/support/stderr_capture.h"

namespace campaign {

// No wait for a socket lasts longer than a few milliseconds of the real time, in which the tick
// clock may pass by minutes.
void Machine::EndFaults() {
  deaf_stderr.reset();
  descriptors.reset();
  threads.reset();
  calls.reset();
  calls.emplace().AtMost(testkit::Call::kPoll, 3);
}

// The pipe's one page is begun, so that no wait finds room. What a thread was about to write at
// this moment still fits in behind.
DeafStderr::DeafStderr() : m_original(dup(STDERR_FILENO)) {
  constexpr int kPage = 4096;
  if (m_original < 0 || pipe2(m_ends, O_CLOEXEC) != 0) return;
  const std::string filling(kPage - 1000, 'x');
  if (fcntl(m_ends[1], F_SETPIPE_SZ, kPage) != kPage) return;
  testkit::SendSanitizerReportsTo(m_original);
  if (write(m_ends[1], filling.data(), filling.size()) > 0) dup2(m_ends[1], STDERR_FILENO);
}

DeafStderr::~DeafStderr() {
  if (m_ends[0] >= 0) dup2(m_original, STDERR_FILENO);
  testkit::SendSanitizerReportsTo(STDERR_FILENO);
  for (const int descriptor : {m_original, m_ends[0], m_ends[1]}) {
    if (descriptor >= 0) close(descriptor);
  }
}

std::size_t HeapBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::size_t ResidentBytes() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace campaign
