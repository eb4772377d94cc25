#include "tests/campaign/schedule.h"
#include "tests/campaign/torture.h"

std::vector<campaign::Act> campaign::SystemActs() {
  return {};
}

std::uint64_t campaign::Torture() {
  return 0;
}
