#include "tools/commands/serve_command.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include "00shcode/mytoolkit/clock.h"
#include "client/package.h"
#include "tools/commands/decimal_number.h"
#include "tools/common/console.h"
#include "tools/common/endpoint.h"
#include "tools/common/exit_status.h"
#include "tools/common/interrupt.h"
#include "tools/server/dev_server.h"
#include "tools/server/listen_fault.h"
#include "tools/server/push_schedule.h"
#include "tools/server/recording.h"
#include "tools/server/script_player.h"

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
    "'ftc balance'. Instead of a mode, a script or a recording may say what the server does.\n"
    "A replayed package goes out once as many requests have come as in the recording, and as much\n"
    "time has passed; requests that differ are named. Each link plays the next recorded one.\n"
    "The first line printed is 'listening on ADDRESS:PORT'. Diagnostics go to standard error.\n\n";

constexpr char kExamples[] =
    "Examples:\n"
    "  ftc serve --port 9000                         # sends each body back\n"
    "  ftc serve --port 9000 --mode push --rate 100\n"
    "  ftc serve --port 9000 --script rules.txt\n"
    "  ftc serve --port 9000 --replay links.pcapng --once\n\n";

struct ServeOptions {
  std::string mode = "echo";
  PushPlan push;
  std::string script;
  std::string recording;
  ReplayPlan replay;
  ServerSettings server;
};

void FollowScript(const std::string& path, ServerSettings* settings) {
  const auto script = std::make_shared<const Script>(ReadScript(path));
  settings->heartbeats = script->heartbeats;
  settings->make_behaviour = [script](const FTTime& start) {
    return std::make_unique<ScriptPlayer>(script, start);
  };
}

void PlayRecording(const ServeOptions& options, ServerSettings* settings) {
  const auto recording = std::make_shared<Recording>(options.recording, options.replay);
  settings->heartbeats = recording->HasHeartbeats();
  settings->make_behaviour = [recording](const FTTime& start) {
    return recording->PlayNext(start);
  };
}

void FollowMode(const ServeOptions& options, ServerSettings* settings) {
  const std::string& mode = options.mode;
  settings->echo = mode == "echo" || mode == "push";
  settings->heartbeats = mode != "mute";
  settings->answers_balance = mode == "balance";
  if (mode != "push") return;
  settings->make_behaviour = [plan = options.push](const FTTime& start) {
    return std::make_unique<PushSchedule>(plan, start);
  };
}

ServerSettings MakeSettings(const ServeOptions& options) {
  ServerSettings settings = options.server;
  if (!options.script.empty()) {
    FollowScript(options.script, &settings);
  } else if (!options.recording.empty()) {
    PlayRecording(options, &settings);
  } else {
    FollowMode(options, &settings);
  }
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
  const bool failed = options.replay.once && !(server.IsDone() && server.IsComplete());
  return failed ? kExitFailed : kExitDone;
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

void AddBehaviourOptions(CLI::App* command, ServeOptions* options) {
  const auto script =
      command->add_option("--script", options->script, "Do what the rules in this file say")
          ->type_name("FILE");
  const auto replay = command
                          ->add_option("--replay", options->recording,
                                       "Play the server's side of a recording of 'ftc tap', or of\n"
                                       "another capture (pcapng) that holds a link's beginning")
                          ->type_name("FILE");
  script->excludes(replay)->excludes("--mode");
  replay->excludes("--mode");
  command
      ->add_option("--speed", options->replay.speed, "Replay: 2 halves all times, 0.5 doubles them")
      ->check(CLI::Range(0.001, 1000000.0))
      ->needs(replay)
      ->capture_default_str();
  command
      ->add_flag("--once", options->replay.once,
                 "Replay: end with the last recorded link; status 1 unless all requests came\n"
                 "as recorded and everything was played")
      ->needs(replay);
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
  AddBehaviourOptions(command, options.get());
  AddPushOptions(command, &options->push);
  command->add_option("--answer", server.balance_answer,
                      "Balance: text of the answer (default: the address that the client reached)");
  command
      ->add_option_function<int>(
          "--event-mode", [&server](int mode) { server.event_mode = FTEventMode{mode}; },
          "1: callbacks on the protocol thread, 0: on the links' threads")
      ->transform(DecimalNumber(0, 1))
      ->default_str("1");
  command->footer(std::string(kDetails) + kScriptHelp + "\n" + kExamples + kExitStatusHelp);
  command->callback([command, options, status] {
    for (const char* option : {"--rate", "--size", "--count"}) {
      RefuseOutsideMode(*command, "push", options->mode, option);
    }
    RefuseOutsideMode(*command, "balance", options->mode, "--answer");
    *status = Serve(*options);
  });
}
