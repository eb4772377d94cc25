#include "bench/growth/measures.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "bench/common/process.h"
#include "bench/growth/echo_client.h"
#include "bench/growth/server_process.h"

namespace growth {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::milliseconds kTick(10);
constexpr std::chrono::milliseconds kSettling(600);  // longer than any fixed wait of the library
constexpr std::uint32_t kMostUnderWay = 1000;
constexpr std::uint32_t kMostUnderWayBytes = 1 << 24;
constexpr std::uint32_t kLossBodyBytes = 64;
constexpr std::chrono::seconds kLossPatience(30);

double SecondsSince(Clock::time_point begin) {
  return Seconds(Clock::now() - begin).count();
}

// What one process uses in a second.
class Meter {
 public:
  using Usage = bench::Process::Usage;
  using Read = std::function<Usage()>;

  explicit Meter(Read read) : m_read(std::move(read)), m_before(m_read()), m_begin(Clock::now()) {}

  void Stop() {
    m_seconds = SecondsSince(m_begin);
    m_after = m_read();
  }

  double GetSeconds() const { return m_seconds; }
  double GetCpuMs() const {
    return (m_after.cpu_seconds - m_before.cpu_seconds) * 1000 / m_seconds;
  }
  double GetWakeUps() const { return double(m_after.wake_ups - m_before.wake_ups) / m_seconds; }

 private:
  const Read m_read;
  const Usage m_before;
  const Clock::time_point m_begin;
  double m_seconds = 0;
  Usage m_after;
};

// Both ends. Reading the server's usage takes a while, which shall not count for the client.
struct Meters {
  explicit Meters(const ServerProcess& process)
      : server([&process] { return process.GetProcess().GetUsage(); }),
        client(&bench::Process::GetOwnUsage) {}

  void Stop() {
    client.Stop();
    server.Stop();
  }

  Meter server;
  Meter client;
};

// Sends what is due in every tick, on the links by turns.
void SendSteadily(const LinksPlan& plan, double seconds, EchoClient* client) {
  if (plan.rate == 0) {
    std::this_thread::sleep_for(Seconds(seconds));
    return;
  }
  const auto begin = Clock::now();
  const auto links = static_cast<std::size_t>(plan.links);
  std::size_t sent = 0;
  for (auto tick = begin; SecondsSince(begin) < seconds; std::this_thread::sleep_until(tick)) {
    const double due = SecondsSince(begin) * plan.rate * plan.links;
    for (; static_cast<double>(sent) < due; ++sent) client->Send(sent % links);
    tick += kTick;
  }
}

std::uint32_t CountUnderWay(std::uint32_t body_bytes) {
  return std::clamp(kMostUnderWayBytes / std::max(body_bytes, 1U), 1U, kMostUnderWay);
}

template <typename Condition>
double MillisecondsUntil(Clock::time_point begin, Condition condition) {
  while (!condition()) {
    if (Clock::now() - begin > kLossPatience) throw std::runtime_error("a lost link stays");
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return SecondsSince(begin) * 1000;
}

}  // namespace

bench::Table MakeLinksTable(bench::Table::Form form) {
  return {form,
          "links",
          {{"links"},
           {"packages/s on each"},
           {"echoes/s", 0},
           {"CPU ms/s, client", 1},
           {"CPU ms/s, server", 1},
           {"wake-ups/s, client", 0},
           {"wake-ups/s, server", 0},
           {"memory MiB, client", 1},
           {"memory MiB, server", 1},
           {"threads, client"}}};
}

void MeasureLinks(const LinksPlan& plan, const bench::Table& table) {
  const ServerProcess server;
  EchoClient client(plan.body_bytes);
  client.Open(server.GetPort(), plan.links);
  SendSteadily(plan, Seconds(kSettling).count(), &client);

  Meters meters(server);
  const std::uint64_t before = client.GetAnswers();
  SendSteadily(plan, plan.seconds, &client);
  const auto answers = static_cast<double>(client.GetAnswers() - before);
  meters.Stop();
  const auto self = bench::Process::Self();
  table.AddRow({double(plan.links), plan.rate, answers / meters.client.GetSeconds(),
                meters.client.GetCpuMs(), meters.server.GetCpuMs(), meters.client.GetWakeUps(),
                meters.server.GetWakeUps(), self.GetMemoryMiB(), server.GetProcess().GetMemoryMiB(),
                double(self.GetThreadCount())});
  client.AwaitAnswers();
}

bench::Table MakeBodiesTable(bench::Table::Form form) {
  return {form,
          "bodies",
          {{"bytes of a body"},
           {"under way"},
           {"echoes/s", 0},
           {"MB/s each way", 2},
           {"CPU µs/echo, client", 2},
           {"CPU µs/echo, server", 2},
           {"peak MiB, client", 1},
           {"peak MiB, server", 1}}};
}

void MeasureBodies(const BodiesPlan& plan, const bench::Table& table) {
  const ServerProcess server;
  EchoClient client(plan.body_bytes);
  client.Open(server.GetPort(), 1);
  const std::uint32_t under_way = CountUnderWay(plan.body_bytes);
  client.SetRefilling(true);
  for (std::uint32_t i = 0; i < under_way; ++i) client.Send(0);
  std::this_thread::sleep_for(kSettling);

  Meters meters(server);
  const std::uint64_t before = client.GetAnswers();
  std::this_thread::sleep_for(Seconds(plan.seconds));
  const auto answers = static_cast<double>(client.GetAnswers() - before);
  meters.Stop();
  const double rate = answers / meters.client.GetSeconds();
  client.SetRefilling(false);
  client.AwaitAnswers();
  table.AddRow({double(plan.body_bytes), double(under_way), rate, rate * plan.body_bytes * 1e-6,
                meters.client.GetCpuMs() * 1000 / rate, meters.server.GetCpuMs() * 1000 / rate,
                bench::Process::Self().GetPeakMemoryMiB(), server.GetProcess().GetPeakMemoryMiB()});
}

bench::Table MakeLossTable(bench::Table::Form form) {
  return {form,
          "loss",
          {{"links"},
           {"all reported ms", 1},
           {"threads gone ms", 1},
           {"descriptors closed ms", 1},
           {"memory MiB, up", 1},
           {"memory MiB, gone", 1}}};
}

void MeasureLoss(int links, const bench::Table& table) {
  ServerProcess server;
  const auto self = bench::Process::Self();
  EchoClient client(kLossBodyBytes);
  std::this_thread::sleep_for(kSettling);
  const int threads = self.GetThreadCount();
  const int descriptors = self.GetDescriptorCount();
  client.Open(server.GetPort(), links);
  std::this_thread::sleep_for(kSettling);
  const double memory = self.GetMemoryMiB();

  const auto begin = Clock::now();
  server.Kill();
  client.AwaitClosed();
  const double reported_ms = SecondsSince(begin) * 1000;
  const double threads_ms =
      MillisecondsUntil(begin, [&] { return self.GetThreadCount() == threads; });
  const double descriptors_ms =
      MillisecondsUntil(begin, [&] { return self.GetDescriptorCount() == descriptors; });
  table.AddRow(
      {double(links), reported_ms, threads_ms, descriptors_ms, memory, self.GetMemoryMiB()});
}

}  // namespace growth
