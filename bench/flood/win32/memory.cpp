#include "bench/flood/memory.h"

#include <windows.h>
// After it.
#include <psapi.h>

namespace flood {

double GetMemoryMiB() {
  constexpr double kBytesPerMiB = 1 << 20;
  PROCESS_MEMORY_COUNTERS counters{};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return static_cast<double>(counters.WorkingSetSize) / kBytesPerMiB;
}

}  // namespace flood
