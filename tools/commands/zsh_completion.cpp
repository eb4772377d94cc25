#include "tools/commands/completion_script.h"

namespace {

// Inside single quotes, in a place where the shell's completion gives these characters a meaning.
std::string Escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\'') {
      escaped += "'\\''";
    } else if (c == '[' || c == ']' || c == ':' || c == '\\') {
      escaped += {'\\', c};
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string WriteAction(const OptionFacts& option) {
  std::string choices;
  for (const std::string& choice : option.choices) choices += (choices.empty() ? "" : " ") + choice;
  const std::string value = ":" + Escape(option.value) + ":";
  if (option.kind == ValueKind::kChoice) return value + "(" + choices + ")";
  if (option.kind == ValueKind::kFile) return value + "_files";
  if (option.kind == ValueKind::kDirectory) return value + "_files -/";
  return value + " ";
}

std::string WriteArguments(const CommandFacts& command, const char* indent) {
  std::string script;
  for (const OptionFacts& option : command.options) {
    const std::string text = "[" + Escape(option.description) + "]";
    for (const std::string& name : option.names) {
      script += std::string(" \\\n") + indent + "'";
      if (option.is_argument) {
        script += (option.is_repeated ? "*" : "") + WriteAction(option) + "'";
      } else if (option.kind == ValueKind::kNone) {
        script += name + text + "'";
      } else {
        script += name + "=" + text + WriteAction(option) + "'";
      }
    }
  }
  return script;
}

}  // namespace

std::string MakeZshCompletion(const CommandFacts& program) {
  const std::string function = "_" + program.name;
  std::string script = "#compdef " + program.name + "\n" + function + R"(() {
  local context state state_descr line
  typeset -A opt_args
  _arguments -C)" + WriteArguments(program, "    ") +
                       R"( \
    '1:command:->command' \
    '*::argument:->arguments'
  case $state in
    command)
      local -a commands=()";
  for (const CommandFacts& command : program.commands) {
    script += "\n        '" + command.name + ":" + Escape(command.summary) + "'";
  }
  script += R"()
      _describe command commands ;;
    arguments)
      case $line[1] in
)";
  for (const CommandFacts& command : program.commands) {
    script += "        " + command.name + ")\n          _arguments" +
              WriteArguments(command, "            ") + " ;;\n";
  }
  return script + "      esac ;;\n  esac\n}\n" + function + " \"$@\"\n";
}
