// ftc serve: a development server.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddServeCommand(CLI::App* program, int* status);
