#include "tools/commands/decimal_number.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::size_t kMostDigits = 10;

// Without leading zeros; empty: the text has other characters than digits.
std::string ToPlainDecimal(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return {};
  return text.substr(std::min(text.find_first_not_of('0'), text.size() - 1));
}

bool IsInRange(const std::string& digits, int least, int most) {
  if (digits.empty() || digits.size() > kMostDigits) return false;
  const long long number = std::stoll(digits);
  return number >= least && number <= most;
}

}  // namespace

CLI::Validator DecimalNumber(int least, int most) {
  const std::string low = std::to_string(least);
  const std::string high = std::to_string(most);
  const auto check = [=](std::string& text) -> std::string {
    const std::string digits = ToPlainDecimal(text);
    if (!IsInRange(digits, least, most)) {
      return "'" + text + "' is not a decimal number from " + low + " to " + high;
    }
    text = digits;
    return {};
  };
  return CLI::Validator(check, low + ".." + high);
}
