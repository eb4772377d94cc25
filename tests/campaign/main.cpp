#include <iostream>

#include "tests/campaign/schedule.h"
#include "tests/campaign/torture.h"
#include "tests/support/process.h"

namespace campaign {

namespace {

constexpr std::uint64_t kWarmUp = 50;           // schedules until the heap has its size
constexpr std::size_t kMostGrowth = 512 << 10;  // bytes, from then on
constexpr std::size_t kMostResident = std::size_t{1} << 30;

struct Options {
  std::uint64_t seed = 1, first = 0, schedules = 100;
  double minutes = 1e9;
  bool torture = false, words = false;
};

class Campaign {
 public:
  explicit Campaign(const Options& options) : m_options(options) {}

  void Run() {
    const auto begin = std::chrono::steady_clock::now();
    const auto spent = [&] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    { Stage({Entry::kServer, Entry::kMute}); }  // makes what is made only once
    while (m_played < m_options.schedules && spent() < 60 * m_options.minutes) {
      PlayOne(m_options.first + m_played++);
    }
  }

  void Report() const {
    for (std::size_t act = 0; act < AllActs().size(); ++act) {
      std::cout << AllActs()[act].name << ' ' << m_acts[act] << '\n';
    }
    std::cout << "resident " << (ResidentBytes() >> 20) << " MB\n"
              << "campaign schedules " << m_played << " losses " << m_losses << " packages "
              << m_packages << " failed 0" << std::endl;
  }

 private:
  // Says first what it plays, since the client may end the process.
  void PlayOne(std::uint64_t number) {
    const Schedule schedule(m_options.seed, number);
    std::cout << "seed " << m_options.seed << " schedule " << number << std::endl;
    if (m_options.words) std::cout << schedule.Words() << std::flush;
    try {
      const testkit::HeldResources before;
      PlayAll(schedule);
      if (!before.AreRestored(std::chrono::seconds(10))) {
        throw Fault("left behind: " + before.Difference());
      }
      CheckMemory();
    } catch (const Fault& fault) {
      throw Fault(schedule.Words() + "FAILED: " + fault.what());
    }
  }

  void PlayAll(const Schedule& schedule) {
    Stage stage(schedule.entries);
    stage.host.Link();
    stage.AwaitUp();
    for (const auto& [act, a, b] : schedule.steps) {
      stage.servers.Turn();
      AllActs()[act].play(stage, a, b);
      ++m_acts[act];
    }
    stage.Recover();
    m_losses += stage.oracle.Losses();
    m_packages += stage.oracle.Packages();
  }

  void CheckMemory() {
    Require(ResidentBytes() <= kMostResident, "too much memory in use");
    if (m_played == kWarmUp) m_heap = HeapBytes();
    Require(m_played <= kWarmUp || HeapBytes() <= m_heap + kMostGrowth, "the heap grows");
  }

  const Options m_options;
  std::uint64_t m_played = 0, m_losses = 0, m_packages = 0;
  std::vector<std::uint64_t> m_acts = std::vector<std::uint64_t>(AllActs().size());
  std::size_t m_heap = 0;
};

Options Read(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; ++i) {
    const std::string name = arguments[i];
    const char* const value = i + 1 < count ? arguments[i + 1] : "0";
    if (name == "--torture") {
      options.torture = true;
      continue;
    }
    if (name == "--seed") options.seed = std::stoull(value);
    if (name == "--minutes") options.minutes = std::stod(value);
    if (name == "--schedules") options.schedules = std::stoull(value);
    if (name == "--schedule") options.first = std::stoull(value);
    if (name == "--schedule") options.schedules = 1, options.words = true;
    ++i;
  }
  return options;
}

}  // namespace

}  // namespace campaign

int main(int count, char** arguments) {
  const auto options = campaign::Read(count, arguments);
  try {
    if (options.torture) {
      std::cout << "torture " << campaign::Torture() << " failed 0" << std::endl;
    } else {
      campaign::Campaign campaign(options);
      campaign.Run();
      campaign.Report();
    }
    return 0;
  } catch (const std::exception& error) {
    std::cout << error.what() << std::endl;
    std::_Exit(1);
  }
}
