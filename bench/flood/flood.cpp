// An application that takes 100 ms for each notification while a server pushes as fast as it can,
// and that catches up afterwards. Prints the memory of each second, its peak, and how long calls
// took at most. The result is 1 when a package is missing, damaged or out of order. usage: flood
// PORT SIZE COUNT SECONDS    versus_server's port, bytes of a body, packages, slow time
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "bench/versus/body_set.h"
#include "bench/versus/job.h"
#include "client/clientdatasource.h"
#include "client/ftwindow.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int kPatienceMs = 20000;
constexpr auto kTimeForOne = 100ms;
constexpr auto kSampling = 20ms;
constexpr int kSamplesPerSecond = 50;

double GetMemoryMiB() {
  constexpr double kPagesPerMiB = 256;
  double all = 0;
  double resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident / kPagesPerMiB;
}

// How long the call takes, in milliseconds.
template <typename Call>
double Time(Call call) {
  const auto begin = Clock::now();
  call();
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Looks at the memory and makes calls, on a thread of its own.
class Observer {
 public:
  explicit Observer(CClientDataSource* client) : m_client(client) {}
  ~Observer() { Stop(); }

  void Stop() {
    m_stopping = true;
    if (m_thread.joinable()) m_thread.join();
  }
  void Print() const {
    std::printf("  MiB each second:%s; peak %.0f; longest AskData %.1f ms, IsOnline %.1f ms\n",
                m_seconds.c_str(), m_peak, m_ask_ms, m_online_ms);
  }

 private:
  void Run() {
    for (int sample = 0; !m_stopping; ++sample) {
      const double memory = GetMemoryMiB();
      m_peak = std::max(m_peak, memory);
      if (sample % kSamplesPerSecond == 0) m_seconds += ' ' + std::to_string(std::lround(memory));
      m_ask_ms = std::max(m_ask_ms, Time([this] { m_client->AskData("?", 1); }));
      m_online_ms = std::max(m_online_ms, Time([this] { m_client->IsOnline(); }));
      std::this_thread::sleep_for(kSampling);
    }
  }

  CClientDataSource* const m_client;
  std::atomic<bool> m_stopping{false};
  std::string m_seconds;
  double m_peak = 0;
  double m_ask_ms = 0;
  double m_online_ms = 0;
  std::thread m_thread{[this] { Run(); }};
};

class Application {
 public:
  Application(int port, const versus::Job& job)
      : m_bodies(job.bodies, job.size), m_window(FTCreateWindow()) {
    m_client.Link("127.0.0.1", port, "", 0, "", 0, "", 0, "", 0, m_window, kMessage);
    if (Take().lParam != LINK_EVENT_UP) throw std::runtime_error("no link");
    const std::string command = job.Command();
    m_client.AskData(command.data(), static_cast<unsigned int>(command.size()));
  }

  CClientDataSource* Client() { return &m_client; }

  void TakeBody() {
    const FTWindowMsg msg = Take();
    const std::string& expected = m_bodies.Of(m_taken);
    char* const body = reinterpret_cast<char*>(msg.wParam);
    if (body == nullptr || static_cast<std::size_t>(msg.lParam) != expected.size() ||
        std::memcmp(body, expected.data(), expected.size()) != 0) {
      throw std::runtime_error("wrong notification " + std::to_string(m_taken));
    }
    m_client.FreeBuffer(body);
    ++m_taken;
  }
  std::uint64_t GetTaken() const { return m_taken; }

 private:
  static constexpr unsigned int kMessage = 0x8001;

  FTWindowMsg Take() const {
    FTWindowMsg msg{};
    if (FTWaitMessage(m_window, &msg, kPatienceMs) != 1) throw std::runtime_error("nothing comes");
    return msg;
  }

  const versus::BodySet m_bodies;
  const unsigned int m_window;
  CClientDataSource m_client;
  std::uint64_t m_taken = 0;
};

// As much again is pushed as is taken, so that the client is at its limits when it ends.
void Flood(int port, const versus::Job& job, std::chrono::seconds slow_time) {
  versus::Job twice = job;
  twice.count *= 2;
  Application application(port, twice);
  Observer observer(application.Client());
  for (const auto end = Clock::now() + slow_time; Clock::now() < end;) {
    application.TakeBody();
    std::this_thread::sleep_for(kTimeForOne);
  }
  const double seconds = Time([&] {
                           while (application.GetTaken() < job.count) application.TakeBody();
                         }) /
                         1000;
  std::this_thread::sleep_for(1s);
  observer.Stop();
  const double unlink_ms = Time([&] { application.Client()->UnLink(); });
  std::printf("%u bytes: %llu packages in order, in %.2f s at last; UnLink %.1f ms\n", job.size,
              static_cast<unsigned long long>(job.count), seconds, unlink_ms);
  observer.Print();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 5) throw std::runtime_error("usage: flood PORT SIZE COUNT SECONDS");
    versus::Job job;
    job.bodies = versus::BodyKind::kRandom;
    job.size = static_cast<std::uint32_t>(std::stoul(argv[2]));
    job.count = std::stoull(argv[3]);
    Flood(std::stoi(argv[1]), job, std::chrono::seconds(std::stoi(argv[4])));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "flood: %s\n", error.what());
    return 1;
  }
  return 0;
}
