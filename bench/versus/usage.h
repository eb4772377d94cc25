#pragma once

#include <cstdint>
#include <vector>

namespace versus {

// What this process has used so far.
double GetCpuSeconds();
std::uint64_t GetPeakMemoryKiB();

// The value that the share of all others does not exceed. Sorts the values; 0 when there are none.
double GetPercentile(std::vector<double>* values, double share);

}  // namespace versus
