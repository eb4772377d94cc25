#include "bench/endings/series.h"

#include <CLI/CLI.hpp>

#include <stdexcept>
#include <thread>

#include "bench/common/stop_watch.h"
#include "bench/versus/usage.h"

namespace endings {

void Options::AddTo(CLI::App* app) {
  app->add_option("--port", port, "where versus_server listens")->required();
  app->add_option("--times", times, "endings of each kind")->check(CLI::PositiveNumber);
  app->add_option("--seed", seed, "of the moments in which they come");
  app->add_option("--only", only, "kinds with this in their names");
  app->add_flag("--json", json, "a line of JSON for each row");
}

Series::Series(const Options& options)
    : m_options(options),
      m_self(bench::Process::Self()),
      m_threads(m_self.GetThreadCount()),
      m_descriptors(m_self.GetDescriptorCount()),
      m_table(
          options.json ? bench::Table::Form::kJson : bench::Table::Form::kMarkdown, "endings",
          {{"state", bench::Table::kText}, {"median ms", 2}, {"99th % ms", 2}, {"worst ms", 2}}),
      m_random(options.seed) {}

void Series::Measure(const std::string& kind, int longest_ms,
                     const std::function<double(Time)>& end) {
  if (kind.find(m_options.only) == std::string::npos) return;
  std::uniform_int_distribution<int> place(0, longest_ms * 1000);
  std::vector<double> times_ms;
  for (int i = 0; i < m_options.times; ++i) {
    times_ms.push_back(end(Time(place(m_random))));
    CheckNothingIsLeft();
  }
  AddRow(kind, &times_ms);
}

void Series::AddRow(const std::string& name, std::vector<double>* times_ms) {
  if (times_ms->empty()) return;
  const double median = versus::GetPercentile(times_ms, 0.5);
  m_table.AddRow({name, median, versus::GetPercentile(times_ms, 0.99), times_ms->back()});
}

// A thread that has been joined may stay in the system's list for a moment.
void Series::CheckNothingIsLeft() const {
  constexpr double kPatienceMs = 5000;
  const bench::StopWatch watch;
  while (m_self.GetThreadCount() > m_threads || m_self.GetDescriptorCount() > m_descriptors) {
    if (watch.GetMs() > kPatienceMs) {
      throw std::runtime_error(
          std::to_string(m_self.GetThreadCount() - m_threads) + " threads and " +
          std::to_string(m_self.GetDescriptorCount() - m_descriptors) + " descriptors are left");
    }
    std::this_thread::yield();
  }
}

}  // namespace endings
