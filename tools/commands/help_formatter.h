#pragma once

#include <CLI/CLI.hpp>
#include <string>

// Writes the help of all commands.
class HelpFormatter final : public CLI::Formatter {
 public:
  // The argument in the usage line; one that may be repeated ends in an ellipsis.
  std::string make_option_usage(const CLI::Option* option) const override;
};
