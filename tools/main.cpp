#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "tools/commands/balance_command.h"
#include "tools/commands/bench_command.h"
#include "tools/commands/completion_command.h"
#include "tools/commands/demo_command.h"
#include "tools/commands/help_formatter.h"
#include "tools/commands/link_command.h"
#include "tools/commands/manual_command.h"
#include "tools/commands/serve_command.h"
#include "tools/commands/tap_command.h"
#include "tools/common/exit_status.h"
#include "tools/common/standard_streams.h"

int main(int argc, char** argv) {
  CarryBytesUnchanged();
  CLI::App program("ftc: host and development server for the ftclient library.", "ftc");
  program.formatter(std::make_shared<HelpFormatter>());
  program.set_version_flag("--version", "ftc " FTC_VERSION, "Print the version and exit");
  program.require_subcommand(0, 1);
  program.footer(std::string("'ftc COMMAND --help' tells more about a command.\n\n") +
                 kExitStatusHelp);
  int status = kExitDone;
  AddServeCommand(&program, &status);
  AddLinkCommand(&program, &status);
  AddTapCommand(&program, &status);
  AddBalanceCommand(&program, &status);
  AddBenchCommand(&program, &status);
  AddDemoCommand(&program, &status);
  AddManualCommand(&program, &status);
  AddCompletionCommand(&program, &status);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kExitDone : kExitBadArguments;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ftc: %s\n", error.what());
    return kExitFailed;
  }
  if (program.get_subcommands().empty()) {
    std::fprintf(stderr, "ftc: which command?\n\n%s", program.help().c_str());
    return kExitBadArguments;
  }
  return status;
}
