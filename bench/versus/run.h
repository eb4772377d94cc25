#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "bench/versus/body_set.h"
#include "bench/versus/contender.h"
#include "bench/versus/job.h"

namespace versus {

// One run of a job: the application's thread.
class Run {
 public:
  struct Result {
    double messages_per_second;
    double p50_us;  // from request to answer; 0 in a push
    double p99_us;
    double cpu_us_per_message;
  };

  // With full_compare the bodies are compared byte by byte, instead of being touched.
  Run(const Job& job, bool full_compare, Contender* contender);

  // Throws std::runtime_error when a body is missing or another than it should be.
  Result Execute();

 private:
  using Clock = std::chrono::steady_clock;

  void Push();
  void Request();
  bool SendRequest(std::uint64_t n);
  void TakeAnswer(std::uint64_t n);
  void TakeBody(std::uint64_t n);

  const Job m_job;
  const bool m_full_compare;
  const BodySet m_bodies;
  Contender* const m_contender;

  // Requests whose time is measured: asking the clock for each would slow a pipeline down.
  const std::uint64_t m_sampling_step;
  std::deque<Clock::time_point> m_sampled;
  std::vector<double> m_times_us;
};

}  // namespace versus
