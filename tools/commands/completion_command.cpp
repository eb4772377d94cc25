#include "tools/commands/completion_command.h"

#include <memory>
#include <string>

#include "tools/commands/completion_script.h"
#include "tools/common/console.h"
#include "tools/common/exit_status.h"

namespace {

constexpr char kHelp[] = "Print what a shell needs to complete command lines of ftc.";

constexpr char kDetails[] =
    "Installing ftc puts these scripts in place for all three shells.\n\n"
    "Examples:\n"
    "  source <(ftc completion bash)             # for this shell\n"
    "  ftc completion zsh >~/.zfunc/_ftc         # a directory of fpath\n"
    "  ftc completion fish | source\n\n";

std::string MakeScript(const std::string& shell, const CommandFacts& program) {
  if (shell == "bash") return MakeBashCompletion(program);
  if (shell == "zsh") return MakeZshCompletion(program);
  return MakeFishCompletion(program);
}

}  // namespace

void AddCompletionCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("completion", kHelp);
  const auto shell = std::make_shared<std::string>();
  command->add_option("SHELL", *shell, "The shell")
      ->check(CLI::IsMember({"bash", "zsh", "fish"}))
      ->required();
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([program, shell, status] {
    std::string script = MakeScript(*shell, CollectFacts(*program));
    script.pop_back();  // the last line end is the console's
    PrintLine(script);
    *status = kExitDone;
  });
}
