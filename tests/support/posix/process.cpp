#include "tests/support/process.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace testkit {

using Directory = std::filesystem::directory_iterator;

// A joined thread stays in the list a moment longer, marked as exiting.
static bool IsAlive(const std::filesystem::directory_entry& task) {
  constexpr unsigned long kExiting = 0x4;  // PF_EXITING of the kernel
  std::ifstream stat(task.path() / "stat");
  std::string flags;
  for (int field = 1; field <= 9; ++field) stat >> flags;
  return stat && (std::stoul(flags) & kExiting) == 0;
}

std::size_t CountDescriptors() {
  const auto count = std::distance(Directory("/proc/self/fd"), Directory());
  return static_cast<std::size_t>(count) - 1;  // one was open for the counting
}

std::size_t CountThreads() {
  const Directory tasks("/proc/self/task");
  return static_cast<std::size_t>(std::count_if(tasks, Directory(), IsAlive));
}

void SetVariable(const char* name, const char* value) {
  *value == '\0' ? unsetenv(name) : setenv(name, value, 1);
}

}  // namespace testkit
