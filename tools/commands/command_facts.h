// What a command line consists of, as the parser has it. Functions without state.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

enum class ValueKind { kNone, kFile, kDirectory, kChoice, kOther };

struct OptionFacts {
  std::vector<std::string> names;  // "-h", "--help"; an argument's only name has no dashes
  bool is_argument = false;
  bool is_required = false;
  bool is_repeated = false;
  ValueKind kind = ValueKind::kNone;
  std::string value;                 // what the value is: "HOST:PORT", "0..10"
  std::vector<std::string> choices;  // of kChoice
  std::string default_value;
  std::string description;  // one line
};

struct CommandFacts {
  std::string name;
  std::string summary;
  std::string details;  // paragraphs; lines that begin with two spaces are to stay as they are
  std::vector<OptionFacts> options;    // arguments first
  std::vector<CommandFacts> commands;  // without those that are hidden
};

CommandFacts CollectFacts(const CLI::App& app);
