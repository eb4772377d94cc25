// ftc manual: the manual page.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddManualCommand(CLI::App* program, int* status);
