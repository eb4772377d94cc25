#pragma once

namespace flood {

// What this process occupies of the machine's memory.
double GetMemoryMiB();

}  // namespace flood
