#include "tools/commands/command_facts.h"

#include <algorithm>

namespace {

std::string JoinLines(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// The parser's name for a value is a type and what checks it: "TEXT:{a,b}", "INT:0..9", "FILE".
void DescribeValue(const std::string& type, OptionFacts* facts) {
  const std::size_t brace = type.find('{');
  facts->value = type;
  facts->kind = ValueKind::kOther;
  if (brace != std::string::npos) {
    facts->kind = ValueKind::kChoice;
    facts->choices = SplitAtCommas(type.substr(brace + 1, type.find('}') - brace - 1));
  } else if (Contains(type, "FILE") || Contains(type, "PATH")) {
    facts->kind = ValueKind::kFile;
  } else if (Contains(type, "DIR")) {
    facts->kind = ValueKind::kDirectory;
  }
  for (const char* const prefix : {"INT:", "UINT:", "TEXT:", "FLOAT:"}) {
    if (facts->value.rfind(prefix, 0) == 0) facts->value.erase(0, std::string(prefix).size());
  }
  const std::size_t range = facts->value.find(" in [");
  if (range != std::string::npos) facts->value.erase(range);
}

OptionFacts CollectOption(const CLI::Option& option) {
  OptionFacts facts;
  facts.is_argument = option.get_positional() && !option.nonpositional();
  if (facts.is_argument) facts.names.push_back(option.get_name(true));
  for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
  facts.is_required = option.get_required();
  facts.is_repeated = option.get_expected_max() > 1;
  facts.default_value = option.get_default_str();
  facts.description = JoinLines(option.get_description());
  if (option.get_items_expected_max() > 0) DescribeValue(option.get_type_name(), &facts);
  return facts;
}

}  // namespace

CommandFacts CollectFacts(const CLI::App& app) {
  CommandFacts facts{app.get_name(), app.get_description(), app.get_footer(), {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) facts.options.push_back(CollectOption(*option));
  }
  std::stable_partition(facts.options.begin(), facts.options.end(),
                        [](const OptionFacts& option) { return option.is_argument; });
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) facts.commands.push_back(CollectFacts(*command));
  }
  return facts;
}
