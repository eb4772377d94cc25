// A wire between two hosts: carries IP packets between the devices net0 of two network namespaces.
// On the way it loses, delays, reorders or doubles them. Prints "ready", then takes
// commands from its standard input, each answered with "done": "cut there" and "cut back" for one
// direction, "cut" for both, "join". A packet on a wire that is cut is lost.
#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

int Checked(int result, const std::string& what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

struct Habits {
  double loss = 0;  // percent, as twice
  double twice = 0;
  int delay_ms = 0;
  int jitter_ms = 0;  // at most; packets overtake each other by it
};

class Wire {
 public:
  Wire(const std::vector<std::string>& namespaces, const Habits& habits) : m_habits(habits) {
    for (const std::string& name : namespaces) m_ends.push_back({OpenDevice(name)});
  }

  // Returns when the standard input ends.
  void Run() {
    for (;;) {
      pollfd watched[] = {
          {0, POLLIN, 0}, {m_ends[0].device, POLLIN, 0}, {m_ends[1].device, POLLIN, 0}};
      Checked(poll(watched, 3, GetWaitMs()), "poll");
      if (watched[0].revents != 0 && !Obey()) return;
      for (int end : {0, 1}) {
        if (watched[end + 1].revents != 0) Take(end);
      }
      Deliver();
    }
  }

 private:
  struct End {
    int device;
    bool cut = false;  // the way that begins here
  };

  static int OpenDevice(const std::string& name_space) {
    const int space = Checked(open(name_space.c_str(), O_RDONLY | O_CLOEXEC), name_space);
    Checked(setns(space, CLONE_NEWNET), "setns");
    close(space);
    const int device = Checked(open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK), "tun");
    ifreq request{};
    std::strcpy(request.ifr_name, "net0");
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    Checked(ioctl(device, TUNSETIFF, &request), "net0");
    return device;
  }

  // False: there are no more commands.
  bool Obey() {
    std::string command;
    if (!std::getline(std::cin, command)) return false;
    if (command != "cut back") m_ends[0].cut = command != "join";
    if (command != "cut there") m_ends[1].cut = command != "join";
    std::puts("done");
    return true;
  }

  void Take(int end) {
    char bytes[65536];
    const auto size = read(m_ends[static_cast<std::size_t>(end)].device, bytes, sizeof bytes);
    if (size <= 0) return;  // the device is down
    const std::string packet(bytes, static_cast<std::size_t>(size));
    if (Happens(m_habits.twice)) Carry(end, packet);
    if (!Happens(m_habits.loss)) Carry(end, packet);
  }

  void Carry(int end, const std::string& packet) {
    std::uniform_int_distribution<int> jitter(0, m_habits.jitter_ms);
    const std::chrono::milliseconds delay(m_habits.delay_ms + jitter(m_random));
    m_under_way.emplace(Clock::now() + delay, std::pair(end, packet));
  }

  // What the system does not take, because the device is down or full, is lost.
  void Deliver() {
    while (!m_under_way.empty() && m_under_way.begin()->first <= Clock::now()) {
      const auto& [end, packet] = m_under_way.begin()->second;
      const End& from = m_ends[static_cast<std::size_t>(end)];
      const End& to = m_ends[static_cast<std::size_t>(1 - end)];
      if (!from.cut) std::ignore = write(to.device, packet.data(), packet.size());
      m_under_way.erase(m_under_way.begin());
    }
  }

  int GetWaitMs() const {
    if (m_under_way.empty()) return -1;
    const auto wait = m_under_way.begin()->first - Clock::now();
    return std::max(0,
                    static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(wait).count()));
  }

  bool Happens(double percent) { return std::bernoulli_distribution(percent / 100)(m_random); }

  const Habits m_habits;
  std::vector<End> m_ends;
  std::mt19937 m_random;
  std::multimap<Clock::time_point, std::pair<int, std::string>> m_under_way;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> namespaces;
  Habits habits;
  CLI::App app("A wire between two network namespaces.", "wire");
  app.add_option("NAMESPACE", namespaces)->expected(2)->required();
  app.add_option("--loss", habits.loss, "percent of the packets");
  app.add_option("--twice", habits.twice, "percent of the packets");
  app.add_option("--delay", habits.delay_ms, "milliseconds");
  app.add_option("--jitter", habits.jitter_ms, "more milliseconds at most");
  CLI11_PARSE(app, argc, argv);
  try {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Wire wire(namespaces, habits);
    std::puts("ready");
    wire.Run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wire: %s\n", error.what());
    return 1;
  }
  return 0;
}
