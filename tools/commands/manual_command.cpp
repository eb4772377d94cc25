#include "tools/commands/manual_command.h"

#include <string>

#include "tools/commands/command_facts.h"
#include "tools/commands/manual_page.h"
#include "tools/common/console.h"
#include "tools/common/exit_status.h"

namespace {

constexpr char kHelp[] = "Print the manual page, made of what --help prints.";

constexpr char kDetails[] =
    "Examples:\n"
    "  ftc manual >ftc.1 && man ./ftc.1\n\n";

}  // namespace

void AddManualCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("manual", kHelp);
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([program, status] {
    std::string page = MakeManualPage(CollectFacts(*program), program->version());
    page.pop_back();  // the last line end is the console's
    PrintLine(page);
    *status = kExitDone;
  });
}
