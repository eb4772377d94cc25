// ftc completion: what a shell needs to complete command lines.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddCompletionCommand(CLI::App* program, int* status);
