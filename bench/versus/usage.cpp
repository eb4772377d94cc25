#include "bench/versus/usage.h"

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

namespace versus {

double GetCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Not ru_maxrss, which begins with the memory of the process that started this one.
std::uint64_t GetPeakMemoryKiB() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    std::uint64_t peak = 0;
    if (word == "VmHWM:" && status >> peak) return peak;
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  throw std::runtime_error("the system does not tell the peak memory");
}

double GetPercentile(std::vector<double>* values, double share) {
  if (values->empty()) return 0;
  std::sort(values->begin(), values->end());
  const double rank = std::ceil(share * static_cast<double>(values->size()));
  const auto index = static_cast<std::size_t>(std::max(rank - 1, 0.0));
  return (*values)[std::min(index, values->size() - 1)];
}

}  // namespace versus
