// ftc balance: one question to a balance server.
#pragma once

#include <CLI/CLI.hpp>

// Adds the command; running it stores its exit status.
void AddBalanceCommand(CLI::App* program, int* status);
