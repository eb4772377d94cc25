#include "tests/campaign/schedule.h"

#include <random>

namespace campaign {

// Distributions of the standard library differ between systems; the generator's words do not.
Schedule::Schedule(std::uint64_t seed, std::uint64_t number) {
  std::seed_seq seeds{seed & 0xFFFFFFFF, seed >> 32, number & 0xFFFFFFFF, number >> 32};
  std::mt19937_64 random(seeds);
  const auto draw = [&] { return static_cast<std::uint32_t>(random() >> 32); };
  entries.assign(1 + draw() % 2, Entry::kServer);
  while (entries.size() < 4 && draw() % 3 == 0) {
    entries.insert(entries.begin() + draw() % (entries.size() + 1), Entry(draw() % 4));
  }
  if (draw() % 8 == 0) entries.insert(entries.begin(), Entry::kNoPort);
  if (draw() % 4 == 0) entries.insert(entries.end(), {Entry::kNoPort, Entry::kServer});
  std::vector<std::size_t> tickets;  // each act as often as it weighs
  for (std::size_t act = 0; act < AllActs().size(); ++act) {
    tickets.insert(tickets.end(), AllActs()[act].weight, act);
  }
  for (std::uint32_t left = 10 + draw() % 40; left > 0; --left) {
    const std::size_t act = tickets[draw() % tickets.size()];
    steps.push_back({act, draw(), draw()});
  }
}

std::string Schedule::Words() const {
  static constexpr const char* kEntries[] = {"server", "refusing", "mute", "no-address", "no-port"};
  std::string words = "servers:";
  for (const Entry entry : entries) words += ' ' + std::string(kEntries[std::size_t(entry)]);
  words += "\nsteps:";
  for (const auto& [act, a, b] : steps) {
    words +=
        '\n' + std::string(AllActs()[act].name) + ' ' + std::to_string(a) + ' ' + std::to_string(b);
  }
  return words + '\n';
}

}  // namespace campaign
