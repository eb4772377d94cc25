#include "tools/terminal/bench_report.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "00shcode/mytoolkit/text.h"
#include "tools/common/count_text.h"
#include "tools/common/json_object.h"

namespace {

struct NamedTime {
  std::string name;
  double microseconds = 0;
};

std::vector<NamedTime> ListTimes(const LatencyHistogram& latencies) {
  const auto in_us = [](std::int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1000;
  };
  return {{"min", in_us(latencies.GetMin())},
          {"p50", in_us(latencies.GetQuantile(0.5))},
          {"p90", in_us(latencies.GetQuantile(0.9))},
          {"p99", in_us(latencies.GetQuantile(0.99))},
          {"p99.9", in_us(latencies.GetQuantile(0.999))},
          {"max", in_us(latencies.GetMax())}};
}

double PerSecond(const BenchResult& result) {
  return static_cast<double>(result.latencies.GetCount()) / result.seconds;
}

std::string Row(const char* name, std::int64_t number, const char* remark) {
  return ft::PadString(name, 12, ft::kAlignLeft, ' ') +
         ft::PadString(ShowGrouped(number).c_str(), 16, ft::kAlignRight, ' ') + remark + "\n";
}

}  // namespace

std::string ShowBenchResult(const BenchOptions& options, const BenchResult& result) {
  const double per_second = PerSecond(result);
  std::string text = ShowEndpoint(options.server) + ", bodies of " +
                     ShowCount(options.size, "byte") + ", " + std::to_string(options.in_flight) +
                     ft::FormatString(" in flight, %.1f s", result.seconds) + "\n";
  text += Row("round trips", result.latencies.GetCount(), "  each answer equal to its request");
  text += Row("per second", std::llround(per_second), "");
  text += Row("bytes/s", std::llround(per_second * options.size), "  each way");
  text += "microseconds";
  for (const NamedTime& time : ListTimes(result.latencies)) {
    text += ft::FormatString("  %s %.1f", time.name.c_str(), time.microseconds);
  }
  return text;
}

std::string ShowBenchResultAsJson(const BenchOptions& options, const BenchResult& result) {
  const double per_second = PerSecond(result);
  JsonObject object;
  object.Add("server", ShowEndpoint(options.server))
      .Add("size", std::int64_t{options.size})
      .Add("in_flight", std::int64_t{options.in_flight})
      .Add("seconds", result.seconds)
      .Add("round_trips", result.latencies.GetCount())
      .Add("per_second", per_second)
      .Add("sent_bytes_per_second", per_second * options.size)
      .Add("received_bytes_per_second", per_second * options.size);
  for (NamedTime time : ListTimes(result.latencies)) {
    std::replace(time.name.begin(), time.name.end(), '.', '_');
    object.Add((time.name + "_us").c_str(), time.microseconds);
  }
  return object.GetText();
}
