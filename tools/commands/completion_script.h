// Scripts that let a shell complete the program's command line. Functions without state.
#pragma once

#include <string>

#include "tools/commands/command_facts.h"

std::string MakeBashCompletion(const CommandFacts& program);
std::string MakeZshCompletion(const CommandFacts& program);
std::string MakeFishCompletion(const CommandFacts& program);
