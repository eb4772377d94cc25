#include "tests/support/descriptor_limit.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "tests/support/socket_io.h"

namespace testkit {

namespace {

// The system gives out the lowest free number: the one behind the next `more` is out of bounds.
int FirstNumberBehind(int more) {
  std::vector<Descriptor> taken;
  for (int i = 0; i <= more; ++i) {
    taken.emplace_back(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    if (taken.back().Get() < 0) ThrowSystemError("duplicating a descriptor");
  }
  return taken.back().Get();
}

// Returns the limit before.
rlim_t SetLimit(rlim_t number) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) ThrowSystemError("getrlimit");
  const rlim_t before = std::exchange(limit.rlim_cur, number);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) ThrowSystemError("setrlimit");
  return before;
}

}  // namespace

DescriptorLimit::DescriptorLimit(int more)
    : m_before(SetLimit(static_cast<rlim_t>(FirstNumberBehind(more)))) {}

DescriptorLimit::~DescriptorLimit() {
  SetLimit(m_before);
}

}  // namespace testkit
