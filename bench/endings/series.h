#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "bench/common/process.h"
#include "bench/common/table.h"

namespace CLI {
class App;
}

namespace endings {

struct Options {
  std::uint16_t port = 0;  // versus_server listens there
  int times = 200;
  unsigned seed = 1;
  std::string only;
  bool json = false;

  void AddTo(CLI::App* app);
};

// Endings of one kind after the other: a row of the table for each kind. To be made while this
// process has the threads and descriptors that it has without a client.
class Series {
 public:
  using Time = std::chrono::microseconds;

  explicit Series(const Options& options);

  // Each ending is given how far into its state it is to come, at most so many milliseconds, and
  // tells how many it took. Throws std::runtime_error when it leaves a thread or a descriptor
  // behind.
  void Measure(const std::string& kind, int longest_ms, const std::function<double(Time)>& end);

  // A row of other times; none if there are none.
  void AddRow(const std::string& name, std::vector<double>* times_ms);

 private:
  void CheckNothingIsLeft() const;

  const Options m_options;
  const bench::Process m_self;
  const int m_threads;
  const int m_descriptors;
  const bench::Table m_table;
  std::mt19937 m_random;
};

}  // namespace endings
