#include "tools/commands/tap_command.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "tools/capture/tap.h"
#include "tools/common/console.h"
#include "tools/common/endpoint.h"
#include "tools/common/exit_status.h"
#include "tools/common/interrupt.h"
#include "tools/server/listen_fault.h"

namespace {

constexpr std::int32_t kLookAroundMs = 50;

constexpr char kHelp[] = "Stand between an application and its server, and show every package.";

constexpr char kDetails[] =
    "The application links to the address that the tap listens on; the tap links to the server\n"
    "and passes everything on unchanged. Each package is one line: the time of day, the link's\n"
    "number, -> to the server or <- to the application, and what it is. Wrong checksums and\n"
    "lengths that end a link are named. Runs until Ctrl-C.\n"
    "The first line printed is 'listening on ADDRESS:PORT'. A recording can be opened by network\n"
    "analysers and played back by 'ftc serve --replay'.\n\n"
    "Examples:\n"
    "  ftc tap 127.0.0.1:9001 10.1.2.3:9000          # the application links to port 9001\n"
    "  ftc tap 127.0.0.1:9001 10.1.2.3:9000 --record links.pcapng\n\n";

struct TapArguments {
  std::string listen;
  std::string server;
  bool hex = false;
  bool no_heartbeats = false;
  capture::TapOptions options;
};

capture::TapOptions MakeOptions(const TapArguments& arguments) {
  capture::TapOptions options = arguments.options;
  options.listen = ParseEndpoint(arguments.listen);
  options.server = ResolveEndpoint(ParseEndpoint(arguments.server));
  if (arguments.hex) options.style.body = BodyStyle::kHex;
  options.style.heartbeats = !arguments.no_heartbeats;
  return options;
}

int RunTap(const capture::TapOptions& options) {
  CatchInterrupts();
  capture::Tap tap(options);
  if (!tap.Listen()) throw std::runtime_error(ShowListenFault(options.listen));
  PrintLine("listening on " + tap.GetAddress());
  while (!IsInterrupted()) tap.RunOnce(kLookAroundMs);
  tap.Stop();
  PrintStamped("stopped");
  if (!tap.IsRecordingSound()) throw std::runtime_error("the recording is not complete");
  return kExitDone;
}

}  // namespace

void AddTapCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("tap", kHelp);
  const auto arguments = std::make_shared<TapArguments>();
  command
      ->add_option("LISTEN", arguments->listen,
                   "Dotted address and port to listen on; port 0: the system chooses one")
      ->check(FindLocalEndpointFault)
      ->type_name("ADDRESS:PORT")
      ->required();
  command->add_option("SERVER", arguments->server, "The server's name or address, and port")
      ->check(FindEndpointFault)
      ->type_name("HOST:PORT")
      ->required();
  command
      ->add_option("--record", arguments->options.recording,
                   "Write what passes to a capture file (pcapng); replaces the file")
      ->type_name("FILE");
  command->add_flag("--hex", arguments->hex, "Print all bodies as hex digits");
  command->add_flag("--no-heartbeats", arguments->no_heartbeats,
                    "Print no heartbeats; they are recorded all the same");
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([arguments, status] { *status = RunTap(MakeOptions(*arguments)); });
}
