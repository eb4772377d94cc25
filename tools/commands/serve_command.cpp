#include "tools/commands/serve_command.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include "00shcode/mytoolkit/clock.h"
#include "client/package.h"
#include "tools/commands/decimal_number.h"
#include "tools/commands/endpoint.h"
#include "tools/commands/exit_status.h"
#include "tools/server/dev_server.h"
#include "tools/server/listen_fault.h"
#include "tools/terminal/console.h"
#include "tools/terminal/interrupt.h"

namespace {

// The client closes a link on which a package of this length or more arrives.
constexpr std::int32_t kTooLongPkg = 0x500000;
constexpr std::int32_t kLargestPushedBody = kTooLongPkg - ft::kPkgHeadLen - 1;
constexpr std::int32_t kHighestRate = 1000000;
constexpr std::uint32_t kLookAroundMs = 50;

constexpr char kHelp[] = "Accept links and serve them until Ctrl-C.";

constexpr char kDetails[] =
    "Modes: echo answers each data package with the same body; push does so and sends packages\n"
    "of its own; mute accepts links and never sends anything; balance answers the question of\n"
    "'ftc balance'.\n"
    "The first line printed is 'listening on ADDRESS:PORT'. Diagnostics go to standard error.\n\n";

struct ServeOptions {
  std::string mode = "echo";
  ServerSettings server;
};

ServerSettings MakeSettings(const ServeOptions& options) {
  ServerSettings settings = options.server;
  settings.echo = options.mode == "echo" || options.mode == "push";
  settings.heartbeats = options.mode != "mute";
  settings.answers_balance = options.mode == "balance";
  if (options.mode != "push") settings.push.rate = 0;
  return settings;
}

int Serve(const ServeOptions& options) {
  CatchInterrupts();
  DevServer server(MakeSettings(options), &PrintStamped);
  if (!server.Start()) {
    throw std::runtime_error(ShowListenFault({options.server.host, options.server.port}));
  }
  PrintLine("listening on " + server.GetAddress());
  while (!IsInterrupted() && !server.IsDone()) ft::Sleep(kLookAroundMs);
  server.Stop();
  PrintStamped("stopped");
  return kExitDone;
}

void RefuseOutsideMode(const CLI::App& command, const std::string& mode, const std::string& actual,
                       const char* option) {
  if (command.count(option) == 0 || actual == mode) return;
  throw CLI::ValidationError(option, "is for --mode " + mode + " only");
}

void AddPushOptions(CLI::App* command, PushPlan* push) {
  push->rate = 10;
  command->add_option("--rate", push->rate, "Push: packages per second and link")
      ->transform(DecimalNumber(1, kHighestRate))
      ->capture_default_str();
  command->add_option("--size", push->size, "Push: bytes of each body")
      ->transform(DecimalNumber(0, kLargestPushedBody))
      ->capture_default_str();
  command
      ->add_option("--count", push->count,
                   "Push: packages per link in all; a link that had them is closed, and the\n"
                   "server ends with the last link (default: no end)")
      ->transform(DecimalNumber(1, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

void AddServeCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("serve", kHelp);
  const auto options = std::make_shared<ServeOptions>();
  ServerSettings& server = options->server;
  command->add_option("--port", server.port, "Port to listen on; 0: the system chooses one")
      ->transform(DecimalNumber(0, 65535))
      ->required();
  command->add_option("--host", server.host, "Dotted address to listen on; 0.0.0.0: all")
      ->check(FindAddressFault)
      ->capture_default_str();
  command->add_option("--mode", options->mode, "What the server does")
      ->check(CLI::IsMember({"echo", "push", "mute", "balance"}))
      ->capture_default_str();
  AddPushOptions(command, &server.push);
  command->add_option("--answer", server.balance_answer,
                      "Balance: text of the answer (default: the address that the client reached)");
  command
      ->add_option_function<int>(
          "--event-mode", [&server](int mode) { server.event_mode = FTEventMode{mode}; },
          "1: callbacks on the protocol thread, 0: on the links' threads")
      ->transform(DecimalNumber(0, 1))
      ->default_str("1");
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([command, options, status] {
    for (const char* option : {"--rate", "--size", "--count"}) {
      RefuseOutsideMode(*command, "push", options->mode, option);
    }
    RefuseOutsideMode(*command, "balance", options->mode, "--answer");
    *status = Serve(*options);
  });
}
