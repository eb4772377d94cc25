#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

// What the system tells about a process, this one or a child.
class Process {
 public:
  struct Usage {
    double cpu_seconds = 0;      // user and system mode
    std::uint64_t wake_ups = 0;  // how often a thread went to sleep and was woken
  };

  explicit Process(pid_t id);
  static Process Self();

  // Of the threads that run now: differences tell about a time in which none ended. Takes long when
  // there are many.
  Usage GetUsage() const;

  // This process's, at once.
  static Usage GetOwnUsage();

  int GetThreadCount() const;
  int GetDescriptorCount() const;

  double GetMemoryMiB() const { return GetMiB("VmRSS:"); }
  double GetPeakMemoryMiB() const { return GetMiB("VmHWM:"); }

 private:
  double GetMiB(const std::string& field) const;

  const std::string m_directory;
};

}  // namespace bench
