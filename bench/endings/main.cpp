// How long the exported class takes to end a client, by the state in which it is ended, and whether
// anything is left of it. Exits with 1 when something is, or when a state does not come about.
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/common/process.h"
#include "bench/common/table.h"
#include "bench/endings/scene.h"
#include "bench/versus/usage.h"

namespace {

using endings::Scene;

struct State {
  const char* name;
  void (Scene::*enter)(Scene::Time time);
  int longest_ms;  // how far into the state the end may come
};

constexpr State kStates[] = {
    {"connecting, no answer", &Scene::Connecting, 300},
    {"connecting, refused", &Scene::Refused, 300},
    {"up and idle", &Scene::Idle, 300},
    {"just lost", &Scene::JustLost, 20},
    {"requests that nobody reads", &Scene::Unread, 100},
    {"flooded both ways", &Scene::BothWays, 100},
    {"pushes to a slow window", &Scene::SlowWindow, 300},
};

struct Options {
  std::uint16_t port = 0;
  int times = 200;
  unsigned seed = 1;
  std::string only;
  bool json = false;
};

// A thread that has been joined may stay in the system's list for a moment.
void CheckNothingIsLeft(int threads, int descriptors) {
  const auto self = bench::Process::Self();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (self.GetThreadCount() > threads || self.GetDescriptorCount() > descriptors) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error(std::to_string(self.GetThreadCount() - threads) + " threads and " +
                               std::to_string(self.GetDescriptorCount() - descriptors) +
                               " descriptors are left");
    }
    std::this_thread::yield();
  }
}

void AddRow(const bench::Table& table, const std::string& name, std::vector<double>* times_ms) {
  const double median = versus::GetPercentile(times_ms, 0.5);
  table.AddRow({name, median, versus::GetPercentile(times_ms, 0.99), times_ms->back()});
}

void Measure(const Options& options) {
  const auto form = options.json ? bench::Table::Form::kJson : bench::Table::Form::kMarkdown;
  const bench::Table table(
      form, "endings",
      {{"state", bench::Table::kText}, {"median ms", 2}, {"99th % ms", 2}, {"worst ms", 2}});
  const auto self = bench::Process::Self();
  const int threads = self.GetThreadCount();
  const int descriptors = self.GetDescriptorCount();
  std::mt19937 random(options.seed);
  std::vector<double> link_ms;
  for (const State& state : kStates) {
    if (std::string(state.name).find(options.only) == std::string::npos) continue;
    std::vector<double> unlink_ms;
    std::uniform_int_distribution<int> place(0, state.longest_ms * 1000);
    for (int i = 0; i < options.times; ++i) {
      {
        Scene scene(options.port);
        (scene.*state.enter)(Scene::Time(place(random)));
        unlink_ms.push_back(scene.UnLink());
        if (const auto time = scene.GetLinkTime()) link_ms.push_back(*time);
      }
      CheckNothingIsLeft(threads, descriptors);
    }
    AddRow(table, state.name, &unlink_ms);
  }
  if (!link_ms.empty()) AddRow(table, "from Link to the link", &link_ms);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("How long UnLink takes in each state of the client.", "endings");
  app.add_option("--port", options.port, "where versus_server listens")->required();
  app.add_option("--times", options.times, "endings in each state")->check(CLI::PositiveNumber);
  app.add_option("--seed", options.seed, "of the moments in which they come");
  app.add_option("--only", options.only, "states with this in their names");
  app.add_flag("--json", options.json, "a line of JSON for each row");
  CLI11_PARSE(app, argc, argv);
  try {
    Measure(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "endings: %s\n", error.what());
    return 1;
  }
  return 0;
}
