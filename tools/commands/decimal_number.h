#pragma once

#include <CLI/CLI.hpp>

// For an option that takes decimal digits with a value in the range. A transformation: it drops
// leading zeros, which would make the number octal.
CLI::Validator DecimalNumber(int least, int most);
