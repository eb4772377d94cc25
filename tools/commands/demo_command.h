// ftc demo: what the library does, shown step by step.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddDemoCommand(CLI::App* program, int* status);
