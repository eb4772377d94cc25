#include "bench/flood/memory.h"

#include <fstream>

namespace flood {

double GetMemoryMiB() {
  constexpr double kPagesPerMiB = 256;
  double all = 0;
  double resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident / kPagesPerMiB;
}

}  // namespace flood
