#include "tools/terminal/spark_line.h"

#include <algorithm>

std::string DrawSparkLine(const std::vector<std::int64_t>& numbers, bool unicode) {
  constexpr std::int64_t kLevels = 8;
  constexpr const char* kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr const char* kAscii[] = {" ", ".", ":", "-", "=", "+", "*", "#", "@"};
  std::int64_t greatest = 1;
  for (const std::int64_t number : numbers) greatest = std::max(greatest, number);
  std::string line;
  for (const std::int64_t number : numbers) {
    const double share = static_cast<double>(number) / static_cast<double>(greatest);
    const auto level = static_cast<std::int64_t>(share * kLevels);
    const std::int64_t shown = number > 0 ? std::clamp(level, std::int64_t{1}, kLevels) : 0;
    line += (unicode ? kBlocks : kAscii)[shown];
  }
  return line;
}
