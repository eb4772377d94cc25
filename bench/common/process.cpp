#include "bench/common/process.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>

#include "bench/versus/usage.h"

namespace bench {

namespace {

// The number behind a field of a status file; 0 when the thread has just ended.
std::uint64_t ReadField(const std::string& path, const std::string& field) {
  std::ifstream status(path);
  std::string word;
  while (status >> word) {
    std::uint64_t number = 0;
    if (word == field && status >> number) return number;
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return 0;
}

int CountEntries(const std::string& directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

}  // namespace

Process::Process(pid_t id) : m_directory("/proc/" + std::to_string(id)) {}

Process Process::Self() {
  return Process(getpid());
}

Process::Usage Process::GetUsage() const {
  Usage usage;
  for (const auto& thread : std::filesystem::directory_iterator(m_directory + "/task")) {
    const std::string directory = thread.path().string();
    double nanoseconds = 0;
    if (std::ifstream(directory + "/schedstat") >> nanoseconds) {
      usage.cpu_seconds += nanoseconds * 1e-9;
    }
    usage.wake_ups += ReadField(directory + "/status", "voluntary_ctxt_switches:");
  }
  return usage;
}

Process::Usage Process::GetOwnUsage() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return {versus::GetCpuSeconds(), static_cast<std::uint64_t>(usage.ru_nvcsw)};
}

int Process::GetThreadCount() const {
  return CountEntries(m_directory + "/task");
}

// One of them is that which reads the directory.
int Process::GetDescriptorCount() const {
  return CountEntries(m_directory + "/fd") - 1;
}

double Process::GetMiB(const std::string& field) const {
  const std::uint64_t kib = ReadField(m_directory + "/status", field);
  if (kib == 0) throw std::runtime_error("the system does not tell " + field);
  return static_cast<double>(kib) / 1024;
}

}  // namespace bench
