#include "tools/commands/help_formatter.h"

std::string HelpFormatter::make_option_usage(const CLI::Option* option) const {
  const std::string usage =
      make_option_name(option, true) + (option->get_expected_max() > 1 ? "..." : "");
  return option->get_required() ? usage : "[" + usage + "]";
}
