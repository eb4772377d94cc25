#include "tools/commands/bench_command.h"

#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include "client/package.h"
#include "tools/commands/decimal_number.h"
#include "tools/common/console.h"
#include "tools/common/endpoint.h"
#include "tools/common/exit_status.h"
#include "tools/common/interrupt.h"
#include "tools/host/echo_bench.h"
#include "tools/terminal/bench_report.h"

namespace {

// The client closes a link on which a package of this length or more arrives.
constexpr std::int32_t kTooLongPkg = 0x500000;
constexpr std::int32_t kLargestBody = kTooLongPkg - ft::kPkgHeadLen - 1;
constexpr std::int32_t kMostInFlight = 10000;
constexpr std::int64_t kMostBytesInFlight = 100000000;
constexpr int kLongestSec = 86400;

constexpr char kHelp[] = "Measure the round trips to an echo server.";

constexpr char kDetails[] =
    "Sends requests as an application does and takes the time until each answer has come. With "
    "one\n"
    "request in flight that is the round trip alone; with more, what a pipeline gets through.\n"
    "The server has to send each body back, as 'ftc serve' does: each answer is compared with its\n"
    "request. Percentiles are right to 0.4 %. Ctrl-C ends the measurement early.\n\n"
    "Examples:\n"
    "  ftc bench 127.0.0.1:9000                      # round trips, one at a time\n"
    "  ftc bench 127.0.0.1:9000 --in-flight 64       # throughput\n"
    "  ftc bench 127.0.0.1:9000 --count 1000 --json\n\n";

struct BenchArguments {
  std::string server;
  bool json = false;
  BenchOptions options;
};

int Bench(const BenchArguments& arguments) {
  CatchInterrupts();
  BenchOptions options = arguments.options;
  options.server = ParseEndpoint(arguments.server);
  std::fprintf(stderr, "ftc: connecting to %s\n", arguments.server.c_str());
  try {
    const BenchResult result = EchoBench(options).Run();
    PrintLine(arguments.json ? ShowBenchResultAsJson(options, result)
                             : ShowBenchResult(options, result));
    return kExitDone;
  } catch (const BenchFault& fault) {
    std::fprintf(stderr, "ftc: %s\n", fault.what());
    return kExitFailed;
  }
}

void AddLoadOptions(CLI::App* command, BenchOptions* options) {
  command->add_option("--size", options->size, "Bytes of each body")
      ->transform(DecimalNumber(0, kLargestBody))
      ->capture_default_str();
  command->add_option("--in-flight", options->in_flight, "Requests that may wait for their answer")
      ->transform(DecimalNumber(1, kMostInFlight))
      ->capture_default_str();
}

void AddLengthOptions(CLI::App* command, BenchOptions* options) {
  CLI::Option* const seconds =
      command->add_option("--seconds", options->seconds, "How long to measure")
          ->transform(DecimalNumber(1, kLongestSec))
          ->capture_default_str();
  command->add_option("--count", options->count, "Round trips to measure, instead of a time")
      ->transform(DecimalNumber(1, std::numeric_limits<std::int32_t>::max()))
      ->excludes(seconds);
  command->add_option("--warm-up", options->warm_up_sec, "Seconds before that are not measured")
      ->transform(DecimalNumber(0, kLongestSec))
      ->capture_default_str();
}

}  // namespace

void AddBenchCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("bench", kHelp);
  const auto arguments = std::make_shared<BenchArguments>();
  command->add_option("SERVER", arguments->server, "The server's dotted address and port")
      ->check(FindDottedEndpointFault)
      ->type_name("HOST:PORT")
      ->required();
  AddLoadOptions(command, &arguments->options);
  AddLengthOptions(command, &arguments->options);
  command->add_flag("--json", arguments->json, "Print one JSON object");
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([arguments, status] {
    const BenchOptions& options = arguments->options;
    if (std::int64_t{options.size} * options.in_flight > kMostBytesInFlight) {
      throw CLI::ValidationError(
          "--in-flight", "times --size is above " + std::to_string(kMostBytesInFlight) + " bytes");
    }
    *status = Bench(*arguments);
  });
}
