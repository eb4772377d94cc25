#include "tests/campaign/schedule.h"

#include <algorithm>

namespace campaign {

namespace {

struct Kind {
  const char* name;
  std::uint32_t weight;
};

// In the order of Act.
constexpr Kind kKinds[] = {
    {"packages", 12},      {"flood", 2},         {"large-package", 1},
    {"single-bytes", 2},   {"heartbeat", 2},     {"empty-package", 2},
    {"balance-bytes", 2},  {"bad-checksum", 3},  {"random-bytes", 2},
    {"hostile-length", 4}, {"half-close", 9},    {"close", 3},
    {"reset", 5},          {"greeting", 2},      {"answering", 3},
    {"await-up", 14},      {"take", 3},          {"ask", 6},
    {"ask-together", 2},   {"change-window", 2}, {"no-window", 1},
    {"destroy-window", 1}, {"relink", 3},        {"balance", 1},
    {"ticks", 4},          {"wall-clock", 2},    {"no-descriptors", 1},
    {"few-threads", 1},    {"no-memory", 3},     {"short-calls", 2},
    {"interruptions", 2},  {"again", 2},         {"broken-calls", 3},
    {"deaf-stderr", 1},    {"faults-end", 4},
};
static_assert(sizeof kKinds / sizeof *kKinds == kActs);

std::uint32_t TotalWeight() {
  std::uint32_t total = 0;
  for (const Kind& kind : kKinds) total += kind.weight;
  return total;
}

Act Draw(std::uint32_t ticket) {
  std::size_t act = 0;
  for (ticket %= TotalWeight(); ticket >= kKinds[act].weight; ++act) ticket -= kKinds[act].weight;
  return static_cast<Act>(act);
}

bool EndsALink(Act act) {
  return act == Act::kHostileLength || (act >= Act::kHalfClose && act <= Act::kReset);
}

}  // namespace

const char* NameOf(Act act) {
  return kKinds[static_cast<std::size_t>(act)].name;
}

// Distributions of the standard library differ between systems; the generator's words do not.
Schedule::Schedule(std::uint64_t seed, std::uint64_t number) {
  std::seed_seq seeds{seed & 0xFFFFFFFF, seed >> 32, number & 0xFFFFFFFF, number >> 32};
  std::mt19937_64 random(seeds);
  const auto draw = [&] { return static_cast<std::uint32_t>(random() >> 32); };
  m_entries.assign(1 + draw() % 2, Entry::kServer);
  while (m_entries.size() < 5 && draw() % 3 == 0) {
    m_entries.insert(m_entries.begin() + draw() % (m_entries.size() + 1), Entry(draw() % 4));
  }
  for (std::uint32_t left = 10 + draw() % 30; left > 0; --left) {
    const Step step{Draw(draw()), draw(), draw()};
    m_steps.push_back(step);
    if (EndsALink(step.act) && draw() % 4 != 0) m_steps.push_back({Act::kAwaitUp, 0, 0});
  }
}

std::string Schedule::Words() const {
  static constexpr const char* kEntries[] = {"server", "refusing", "mute", "no-address"};
  std::string words = "servers:";
  for (const Entry entry : m_entries) words += ' ' + std::string(kEntries[std::size_t(entry)]);
  words += "\nsteps:";
  for (const auto& [act, a, b] : m_steps) {
    words += "\n  " + std::string(NameOf(act)) + ' ' + std::to_string(a) + ' ' + std::to_string(b);
  }
  return words + '\n';
}

}  // namespace campaign
