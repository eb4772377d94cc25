#pragma once

#include <string>

#include "tools/commands/command_facts.h"

// The program's manual page in roff, for section 1. The version is what --version prints.
std::string MakeManualPage(const CommandFacts& program, const std::string& version);
