// ftc link: a host at the command line.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddLinkCommand(CLI::App* program, int* status);
