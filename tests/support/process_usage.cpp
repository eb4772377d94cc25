#include "tests/support/process_usage.h"

#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "tests/support/socket_io.h"
#include "tests/support/wait_until.h"

namespace testkit {

namespace {

using Directory = std::filesystem::directory_iterator;

// A joined thread stays in the list a moment longer, marked as exiting.
bool IsExiting(const std::filesystem::path& task) {
  constexpr unsigned long kExiting = 0x4;  // PF_EXITING of the kernel
  std::ifstream file(task / "stat");
  std::string line;
  if (!std::getline(file, line)) return true;
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  std::string state;
  long parent, group, session, terminal, terminal_group;
  unsigned long flags = 0;
  fields >> state >> parent >> group >> session >> terminal >> terminal_group >> flags;
  return (flags & kExiting) != 0;
}

std::chrono::microseconds AsDuration(const timeval& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

std::string Change(const char* what, std::size_t before, std::size_t now) {
  return std::string(what) + ": " + std::to_string(before) + " before, " + std::to_string(now) +
         " now";
}

}  // namespace

std::size_t CountDescriptors() {
  const Directory entries("/proc/self/fd");
  const auto count = std::distance(begin(entries), end(entries));
  return static_cast<std::size_t>(count) - 1;  // one was open for the counting
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

HeldResources::HeldResources() {
  std::thread([] {}).join();  // the first thread of all may bring a sanitizer's own with it
  m_descriptors = CountDescriptors();
  m_threads = CountThreads();
}

bool HeldResources::AreRestored(std::chrono::milliseconds limit) const {
  return WaitUntil(
      [this] { return CountDescriptors() == m_descriptors && CountThreads() == m_threads; }, limit);
}

std::string HeldResources::Difference() const {
  return Change("descriptors", m_descriptors, CountDescriptors()) + "; " +
         Change("threads", m_threads, CountThreads());
}

}  // namespace testkit
