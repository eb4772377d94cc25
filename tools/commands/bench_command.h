// ftc bench: how fast a server answers.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddBenchCommand(CLI::App* program, int* status);
