#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>

#include "client/clientdatasource.h"
#include "tools/common/endpoint.h"
#include "tools/host/host_window.h"
#include "tools/host/latency_histogram.h"

struct BenchOptions {
  Endpoint server;  // dotted address
  std::int32_t size = 64;
  std::int32_t in_flight = 1;
  std::int32_t seconds = 5;
  std::int32_t count = 0;  // round trips; 0: as many as the seconds allow
  std::int32_t warm_up_sec = 1;
};

struct BenchResult {
  double seconds = 0;  // from the first request to the last answer
  LatencyHistogram latencies;
};

// Why there is nothing to measure, in words for whoever started it.
class BenchFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Sends requests to an echo server, a number of them at a time, and times the answers. Each answer
// is compared with its request. One per process.
class EchoBench {
 public:
  explicit EchoBench(const BenchOptions& options);

  // Blocks until enough was measured or until an interrupt; ends the client. Throws BenchFault when
  // there is no link, the link is lost, the server does not echo, or nothing was measured.
  BenchResult Run();

 private:
  using Clock = std::chrono::steady_clock;

  void AwaitLink();
  BenchResult Measure(std::int32_t seconds, std::int64_t count);
  void Send();
  void TakeAnswer(LatencyHistogram* latencies);
  void CheckAnswer(const std::string& answer);
  void CheckNoneIsLeft();
  const std::string& MakeBody(std::int64_t number);

  const BenchOptions m_options;
  const std::string m_name;  // of the server
  CClientDataSource m_client;
  HostWindow m_window{&m_client};
  std::string m_body;                    // of the request that was made last
  std::int64_t m_answered = 0;           // requests; the next answer is for the next number
  std::deque<Clock::time_point> m_sent;  // those that are not answered yet
};
