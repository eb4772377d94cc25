#include "tools/commands/completion_script.h"

namespace {

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "'";
}

std::string WriteNames(const OptionFacts& option) {
  std::string names;
  for (const std::string& name : option.names) {
    names += name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  return option.is_argument ? "" : names;
}

// Without -F no files are offered.
std::string WriteValues(const OptionFacts& option) {
  std::string choices;
  for (const std::string& choice : option.choices) choices += (choices.empty() ? "" : " ") + choice;
  const std::string needs_value = option.is_argument ? "" : " -r";
  switch (option.kind) {
    case ValueKind::kNone:
      return {};
    case ValueKind::kChoice:
      return needs_value + " -f -a " + Quote(choices);
    case ValueKind::kFile:
      return needs_value + " -F";
    case ValueKind::kDirectory:
      return needs_value + " -f -a '(__fish_complete_directories)'";
    default:
      return needs_value + " -f";
  }
}

}  // namespace

std::string MakeFishCompletion(const CommandFacts& program) {
  const std::string begin = "complete -c " + program.name;
  std::string script = "# Completes the command line of " + program.name + ".\n" + begin + " -f\n";
  const auto add_options = [&](const CommandFacts& command, const std::string& condition) {
    for (const OptionFacts& option : command.options) {
      script += begin + " -n " + condition + WriteNames(option) + WriteValues(option) + " -d " +
                Quote(option.description) + "\n";
    }
  };
  add_options(program, "__fish_use_subcommand");
  for (const CommandFacts& command : program.commands) {
    script += begin + " -n __fish_use_subcommand -a " + command.name + " -d " +
              Quote(command.summary) + "\n";
    add_options(command, "'__fish_seen_subcommand_from " + command.name + "'");
  }
  return script;
}
