#include "tools/commands/completion_script.h"

namespace {

// In a case whose word is the command and what stands before the cursor.
std::string WriteValues(const CommandFacts& command, const OptionFacts& option) {
  if (option.is_argument || option.kind == ValueKind::kNone) return {};
  std::string patterns;
  for (const std::string& name : option.names) {
    patterns += (patterns.empty() ? "'" : " | '") + command.name + " " + name + "'";
  }
  std::string act;
  for (const std::string& choice : option.choices) act += (act.empty() ? "" : " ") + choice;
  if (option.kind == ValueKind::kChoice) act = " words='" + act + "'";
  if (option.kind == ValueKind::kFile) act = " kind=-f";
  if (option.kind == ValueKind::kDirectory) act = " kind=-d";
  return "    " + patterns + ")" + act + " ;;\n";
}

// In a case whose word is the command: what may stand in any place.
std::string WriteWords(const CommandFacts& command, const std::string& pattern) {
  std::string words;
  std::string kind;
  const auto add = [&words](const std::string& word) {
    words += (words.empty() ? "" : " ") + word;
  };
  for (const CommandFacts& other : command.commands) add(other.name);
  for (const OptionFacts& option : command.options) {
    for (const std::string& word : option.is_argument ? option.choices : option.names) add(word);
    if (option.is_argument && option.kind == ValueKind::kFile) kind = " kind=-f";
    if (option.is_argument && option.kind == ValueKind::kDirectory) kind = " kind=-d";
  }
  return "        " + pattern + ") words='" + words + "'" + kind + " ;;\n";
}

}  // namespace

std::string MakeBashCompletion(const CommandFacts& program) {
  std::string script = "# Completes the command line of " + program.name + ".\n_" + program.name +
                       R"(() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= words= kind=
  ((COMP_CWORD == 1)) || command=${COMP_WORDS[1]}
  # --option=value comes as three words.
  [[ $word != = ]] || word=
  [[ $before != = ]] || before=${COMP_WORDS[COMP_CWORD - 2]}
  case "$command $before" in
)";
  for (const CommandFacts& command : program.commands) {
    for (const OptionFacts& option : command.options) script += WriteValues(command, option);
  }
  script += "    *)\n      case $command in\n" + WriteWords(program, "''");
  for (const CommandFacts& command : program.commands) script += WriteWords(command, command.name);
  script += R"(      esac ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  [[ -n $kind ]] || return 0
  compopt -o filenames 2>/dev/null
  mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen "$kind" -- "$word")
}
)";
  return script + "complete -F _" + program.name + " " + program.name + "\n";
}
