#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One character for each number of 0 or more, the higher the greater; the greatest fills its cell,
// and only 0 leaves its cell empty.
std::string DrawSparkLine(const std::vector<std::int64_t>& numbers, bool unicode);
