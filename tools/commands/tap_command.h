// ftc tap: a relay that shows and records what an application and its server exchange.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddTapCommand(CLI::App* program, int* status);
