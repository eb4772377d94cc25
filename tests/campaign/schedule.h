#pragma once

#include "tests/campaign/stage.h"

namespace campaign {

// One kind of step. What its two numbers say depends on the kind.
struct Act {
  const char* name;
  std::uint32_t weight;  // how often it is drawn, among the weights of all
  void (*play)(Stage& stage, std::uint32_t a, std::uint32_t b);
};

std::vector<Act> SystemActs();  // those that only this system can play
const std::vector<Act>& AllActs();

struct Step {
  std::size_t act;  // of AllActs
  std::uint32_t a, b;
};

// The same seed and number give the same servers and steps on every machine of a system.
struct Schedule {
  Schedule(std::uint64_t seed, std::uint64_t number);
  std::string Words() const;

  std::vector<Entry> entries;  // one kServer at least
  std::vector<Step> steps;
};

}  // namespace campaign
