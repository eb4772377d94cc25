#include "tests/support/descriptor_limit.h"

#include <fcntl.h>
#include <unistd.h>

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

void SetLimit(const rlimit& limit) {
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) ThrowSystemError("setrlimit");
}

}  // namespace

DescriptorLimit::DescriptorLimit(int more) {
  if (getrlimit(RLIMIT_NOFILE, &m_before) != 0) ThrowSystemError("getrlimit");
  SetLimit({static_cast<rlim_t>(FirstNumberBehind(more)), m_before.rlim_max});
}

DescriptorLimit::~DescriptorLimit() {
  SetLimit(m_before);
}

}  // namespace testkit
