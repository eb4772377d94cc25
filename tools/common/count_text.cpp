#include "tools/common/count_text.h"

std::string ShowCount(std::int64_t count, const char* unit) {
  return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}

std::string ShowGrouped(std::int64_t number) {
  std::string text = std::to_string(number);
  const std::size_t first = number < 0 ? 1 : 0;
  for (std::size_t at = text.size(); at > first + 3;) text.insert(at -= 3, ",");
  return text;
}
