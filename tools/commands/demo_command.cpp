#include "tools/commands/demo_command.h"

#include <string>

#include "tools/common/exit_status.h"
#include "tools/host/demo.h"

namespace {

constexpr char kHelp[] = "Show in a few seconds what the library does.";

constexpr char kDetails[] =
    "Two servers and a client in this process, on ports of the loopback interface that the system\n"
    "chooses. Diagnostics go to standard error.\n\n"
    "Examples:\n"
    "  ftc demo\n\n";

}  // namespace

void AddDemoCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("demo", kHelp);
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([status] { *status = Demo().Run() ? kExitDone : kExitFailed; });
}
