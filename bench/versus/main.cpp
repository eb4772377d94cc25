// One run of one contender. Prints: contender, job, size, bodies, messages/s, p50 and p99 in us (0
// in a push), CPU time per message in us, peak memory in KiB.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <map>
#include <string>

#include "bench/versus/contender.h"
#include "bench/versus/job.h"
#include "bench/versus/run.h"
#include "bench/versus/usage.h"

namespace {

const std::map<std::string, versus::JobKind> kJobs = {{"push", versus::JobKind::kPush},
                                                      {"pipeline", versus::JobKind::kPipeline},
                                                      {"rtt", versus::JobKind::kRoundTrip}};
const std::map<std::string, versus::BodyKind> kBodies = {{"text", versus::BodyKind::kText},
                                                         {"random", versus::BodyKind::kRandom}};

struct Options {
  std::uint16_t port = 0;
  std::string job = "push";
  std::string bodies = "text";
  std::uint32_t size = 16;
  std::uint64_t count = 10000;
  bool check = false;
};

void Execute(const Options& options) {
  versus::Job job;
  job.kind = kJobs.at(options.job);
  job.bodies = kBodies.at(options.bodies);
  job.size = options.size;
  job.count = options.count;
  job.damaged = options.check && job.kind == versus::JobKind::kPush;

  const auto contender = versus::MakeContender(options.port, job);
  const auto result = versus::Run(job, options.check, contender.get()).Execute();
  std::printf("%s %s %u %s %.0f %.2f %.2f %.4f %llu\n", versus::kContenderName, options.job.c_str(),
              options.size, options.bodies.c_str(), result.messages_per_second, result.p50_us,
              result.p99_us, result.cpu_us_per_message,
              static_cast<unsigned long long>(versus::GetPeakMemoryKiB()));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("One run of one contender against versus_server.", "versus");
  app.add_option("--port", options.port, "where the server listens")->required();
  app.add_option("--job", options.job, "push, pipeline or rtt")->check(CLI::IsMember(kJobs));
  app.add_option("--bodies", options.bodies, "text or random")->check(CLI::IsMember(kBodies));
  app.add_option("--size", options.size, "bytes of a body")->check(CLI::Range(4, 1 << 22));
  app.add_option("--count", options.count, "messages")->check(CLI::PositiveNumber);
  app.add_flag("--check", options.check,
               "compare every body, and have the server damage some of a push");
  CLI11_PARSE(app, argc, argv);
  try {
    Execute(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", versus::kContenderName, error.what());
    return 1;
  }
  return 0;
}
