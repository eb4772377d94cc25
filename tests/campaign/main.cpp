// usage: campaign [--seed N] [--schedules N] [--minutes M] [--schedule K], or campaign --torture
//   --schedule   plays this one alone and says what it is made of
#include <iostream>

#include "tests/campaign/schedule.h"
#include "tests/campaign/torture.h"
#include "tests/support/process.h"

namespace {

using namespace campaign;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kWarmUp = 50;           // schedules until the heap has its size
constexpr std::size_t kMostGrowth = 512 << 10;  // bytes, from then on
constexpr std::size_t kMostResident = std::size_t{1} << 30;

struct Totals {
  std::uint64_t schedules = 0, losses = 0, packages = 0;
  std::vector<std::uint64_t> acts = std::vector<std::uint64_t>(AllActs().size());
  std::size_t heap = 0;
};

void PlaySteps(const Schedule& schedule, Totals* totals) {
  Stage stage(schedule.entries);
  stage.host.Link();
  stage.AwaitUp();
  for (const auto& [act, a, b] : schedule.steps) {
    stage.servers.Turn();
    AllActs()[act].play(stage, a, b);
    ++totals->acts[act];
  }
  stage.Recover();
  totals->losses += stage.oracle.Losses();
  totals->packages += stage.oracle.Packages();
}

void Play(const Schedule& schedule, Totals* totals) try {
  const testkit::HeldResources before;
  PlaySteps(schedule, totals);
  const bool restored = before.AreRestored(std::chrono::seconds(10));
  Require(restored, ("left behind: " + before.Difference()).c_str());
  Require(ResidentBytes() <= kMostResident, "too much memory in use");
  if (++totals->schedules == kWarmUp) totals->heap = HeapBytes();
  const bool warm = totals->schedules > kWarmUp;
  Require(!warm || HeapBytes() <= totals->heap + kMostGrowth, "the heap grows");
} catch (const Fault& fault) {
  throw Fault(schedule.Words() + "FAILED: " + fault.what());
}

void Report(const Totals& totals) {
  for (std::size_t act = 0; act < AllActs().size(); ++act) {
    std::cout << AllActs()[act].name << ' ' << totals.acts[act] << '\n';
  }
  std::cout << "resident " << (ResidentBytes() >> 20) << " MB\ncampaign schedules "
            << totals.schedules << " losses " << totals.losses << " packages " << totals.packages
            << " failed 0" << std::endl;
}

// Says first what it plays, since the client may end the process.
void Run(std::map<std::string, std::string> options) {
  const std::uint64_t seed = std::stoull(options["--seed"]);
  const bool single = options.count("--schedule") > 0;
  const std::uint64_t first = single ? std::stoull(options["--schedule"]) : 0;
  const std::uint64_t end = single ? first + 1 : std::stoull(options["--schedules"]);
  const std::chrono::duration<double, std::ratio<60>> limit(std::stod(options["--minutes"]));
  { Stage({Entry::kServer, Entry::kMute}); }  // makes what is made only once
  Totals totals;
  const auto begin = Clock::now();
  for (std::uint64_t number = first; number < end && Clock::now() - begin < limit; ++number) {
    const Schedule schedule(seed, number);
    std::cout << "seed " << seed << " schedule " << number << std::endl;
    if (single) std::cout << schedule.Words() << std::flush;
    Play(schedule, &totals);
  }
  Report(totals);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count == 2 && std::string(arguments[1]) == "--torture") {
      const std::uint64_t played = Torture();
      std::cout << "torture " << played << " failed 0" << std::endl;
      return 0;
    }
    std::map<std::string, std::string> options{
        {"--seed", "1"}, {"--schedules", "100"}, {"--minutes", "1000000"}};
    for (int i = 1; i + 1 < count; i += 2) options[arguments[i]] = arguments[i + 1];
    Run(options);
    return 0;
  } catch (const std::exception& error) {
    std::cout << error.what() << std::endl;
    std::_Exit(1);
  }
}
