#include "tests/support/process_usage.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/environment.h"
#include "tests/support/socket_io.h"

namespace testkit {

namespace {

using Directory = std::filesystem::directory_iterator;

// A joined thread stays in the list a moment longer, marked as exiting.
bool IsExiting(const std::filesystem::path& task) {
  constexpr unsigned long kExiting = 0x4;  // PF_EXITING of the kernel
  std::ifstream file(task / "stat");
  std::string line;
  if (!std::getline(file, line)) return true;
  unsigned long flags = 0;
  std::sscanf(line.c_str() + line.rfind(')'), ") %*c %*d %*d %*d %*d %*d %lu", &flags);
  return (flags & kExiting) != 0;
}

std::chrono::microseconds AsDuration(const timeval& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

}  // namespace

std::size_t CountDescriptors() {
  const Directory entries("/proc/self/fd");
  const auto count = std::distance(begin(entries), end(entries));
  return static_cast<std::size_t>(count) - 1;  // one was open for the counting
}

std::size_t CountHandles() {
  return CountDescriptors();
}

std::size_t CountThreads() {
  const Directory tasks("/proc/self/task");
  const auto count = std::count_if(begin(tasks), end(tasks),
                                   [](const auto& task) { return !IsExiting(task.path()); });
  return static_cast<std::size_t>(count);
}

std::chrono::microseconds CpuTime() {
  rusage usage{};
  if (getrusage(RUSAGE_SELF, &usage) != 0) ThrowSystemError("getrusage");
  return AsDuration(usage.ru_utime) + AsDuration(usage.ru_stime);
}

void SetVariable(const char* name, const char* value) {
  if (*value == '\0') {
    unsetenv(name);
  } else {
    setenv(name, value, 1);
  }
}

}  // namespace testkit
