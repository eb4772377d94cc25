// How long it takes to end a client, by the state in which it is ended, and whether anything is
// left of it. Exits with 1 when something is, or when a state does not come about.
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "bench/common/stop_watch.h"
#include "bench/endings/leaving.h"
#include "bench/endings/scene.h"
#include "bench/endings/series.h"

namespace {

using endings::Scene;
using endings::Series;

struct State {
  const char* name;
  void (Scene::*enter)(Scene::Time time);
  int longest_ms;  // how far into the state the end may come
};

constexpr State kStates[] = {
    {"connecting, no answer", &Scene::Connecting, 300},
    {"connecting, refused", &Scene::Refused, 300},
    {"up and idle", &Scene::Idle, 300},
    {"closed by the server meanwhile", &Scene::BeingClosed, 1},
    {"closed by the client itself", &Scene::ClosedByClient, 1},
    {"just lost", &Scene::JustLost, 20},
    {"requests that nobody reads", &Scene::Unread, 100},
    {"flooded both ways", &Scene::BothWays, 100},
    {"pushes to a slow window", &Scene::SlowWindow, 300},
    {"pushes to a destroyed window", &Scene::WindowDestroyed, 20},
};

void Measure(const endings::Options& options) {
  Series series(options);
  std::vector<double> link_ms;
  for (const State& state : kStates) {
    series.Measure(state.name, state.longest_ms, [&](Series::Time time) {
      Scene scene(options.port);
      (scene.*state.enter)(time);
      if (const auto link_time = scene.GetLinkTime()) link_ms.push_back(*link_time);
      const bench::StopWatch watch;
      scene.UnLink();
      return watch.GetMs();
    });
  }
  series.Measure("process exit, global object", 100, [&](Series::Time time) {
    return endings::TimeExit(options.port, time, endings::ObjectOfExit::kGlobal);
  });
  series.Measure("process exit, object on the heap", 100, [&](Series::Time time) {
    return endings::TimeExit(options.port, time, endings::ObjectOfExit::kOnHeap);
  });
  series.AddRow("from Link to the link", &link_ms);
}

}  // namespace

int main(int argc, char** argv) {
  endings::Options options;
  CLI::App app("How long a client takes to end in each of its states.", "endings");
  options.AddTo(&app);
  CLI11_PARSE(app, argc, argv);
  try {
    Measure(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "endings: %s\n", error.what());
    return 1;
  }
  return 0;
}
