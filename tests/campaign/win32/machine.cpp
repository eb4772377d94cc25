// Faults of the machine are ordered on Linux alone.
#include "tests/campaign/machine.h"

#include "tests/campaign/schedule.h"

namespace campaign {

struct MachineFaults {};

// Waits for a socket last half a second of the real time.
const std::uint32_t Machine::kTicksWhileIdle = 50;

Machine::Machine() = default;
Machine::~Machine() = default;

void Machine::EndFaults() {}

bool Machine::LacksThreads() const {
  return false;
}

std::vector<Act> SystemActs() {
  return {};
}

std::size_t HeapBytes() {
  return 0;
}

std::size_t ResidentBytes() {
  return 0;
}

std::uint64_t Torture() {
  throw std::runtime_error("calls are made to fail on Linux alone");
}

}  // namespace campaign
