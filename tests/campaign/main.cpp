#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iostream>

#include "tests/campaign/player.h"
#include "tests/campaign/torture.h"
#include "tests/support/process.h"

// There in sanitizer builds only.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace campaign {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kLongestSchedule = 180;      // seconds of real time
constexpr std::size_t kWarmUp = 50;             // schedules until the heap has its size
constexpr std::size_t kMostGrowth = 512 << 10;  // bytes, from then on
constexpr std::size_t kMostResident = std::size_t{1} << 30;

struct Options {
  std::uint64_t seed = 1, first = 0, schedules = 100;
  double minutes = 0;  // 0: without limit
  bool torture = false;
};

std::string g_playing;  // what to say when the process is ended

void TellWhatWasPlayed() {
  if (write(STDOUT_FILENO, g_playing.data(), g_playing.size()) < 0) _exit(2);
}

void OnSignal(int signal) {
  TellWhatWasPlayed();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

// The lines of the library are not wanted here; what sanitizers say is.
void SetUp() {
  if (__sanitizer_set_report_fd) {
    __sanitizer_set_report_fd(reinterpret_cast<void*>(std::intptr_t{dup(STDERR_FILENO)}));
  }
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDERR_FILENO);
  close(nowhere);
  if (__sanitizer_set_death_callback) __sanitizer_set_death_callback(&TellWhatWasPlayed);
  for (const int signal : {SIGALRM, SIGABRT, SIGPIPE}) std::signal(signal, &OnSignal);
  if (!__sanitizer_set_death_callback) std::signal(SIGSEGV, &OnSignal);
}

std::size_t HeapBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::size_t ResidentBytes() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

class Campaign {
 public:
  explicit Campaign(const Options& options) : m_options(options) {}

  void Run() {
    const auto begin = Clock::now();
    const auto is_over = [&] {
      const std::chrono::duration<double> spent = Clock::now() - begin;
      return m_options.minutes > 0 && spent.count() > 60 * m_options.minutes;
    };
    { Servers({Entry::kServer, Entry::kMute}, &m_nobody); }  // makes what is made only once
    const testkit::HeldResources before;
    for (; m_played < m_options.schedules && !is_over(); ++m_played) {
      PlayOne(m_options.first + m_played, before);
    }
  }

  void Report() const {
    for (std::size_t act = 0; act < kActs; ++act) {
      std::cout << NameOf(static_cast<Act>(act)) << ' ' << m_acts[act] << '\n';
    }
    std::cout << "resident " << (ResidentBytes() >> 20) << " MB\n"
              << "campaign schedules " << m_played << " losses " << m_losses << " packages "
              << m_packages << " failed 0" << std::endl;
  }

 private:
  void PlayOne(std::uint64_t number, const testkit::HeldResources& before) {
    const Schedule schedule(m_options.seed, number);
    g_playing = "seed " + std::to_string(m_options.seed) + " schedule " + std::to_string(number) +
                '\n' + schedule.Words();
    alarm(kLongestSchedule);
    {
      Player player(schedule);
      player.Play();
      m_losses += player.Seen().Losses();
      m_packages += player.Seen().Packages();
    }
    for (const Step& step : schedule.Steps()) ++m_acts[static_cast<std::size_t>(step.act)];
    if (!before.AreRestored(std::chrono::seconds(10))) {
      throw std::runtime_error("left behind: " + before.Difference());
    }
    CheckMemory();
    alarm(0);
  }

  void CheckMemory() {
    if (ResidentBytes() > kMostResident) throw std::runtime_error("too much memory in use");
    if (m_played == kWarmUp) m_heap = HeapBytes();
    const std::size_t heap = HeapBytes();
    if (m_played > kWarmUp && heap > m_heap + kMostGrowth) {
      throw std::runtime_error("the heap grew from " + std::to_string(m_heap) + " to " +
                               std::to_string(heap) + " bytes");
    }
  }

  const Options m_options;
  Oracle m_nobody;
  std::uint64_t m_played = 0, m_losses = 0, m_packages = 0, m_acts[kActs] = {};
  std::size_t m_heap = 0;
};

int Run(const Options& options) {
  SetUp();
  try {
    if (options.torture) {
      std::cout << "torture " << Torture() << " failed 0" << std::endl;
    } else {
      Campaign campaign(options);
      campaign.Run();
      campaign.Report();
    }
    return 0;
  } catch (const std::runtime_error& error) {
    std::cout << g_playing << "FAILED: " << error.what() << std::endl;
    _exit(1);
  }
}

}  // namespace

}  // namespace campaign

int main(int count, char** arguments) {
  campaign::Options options;
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
    if (name == "--first" || name == "--schedule") options.first = std::stoull(value);
    if (name == "--schedule") options.schedules = 1;
    ++i;
  }
  return campaign::Run(options);
}
