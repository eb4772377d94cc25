#include "tools/terminal/count_text.h"

std::string ShowCount(std::int64_t count, const char* unit) {
  return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}
