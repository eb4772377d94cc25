#include "tools/common/time_text.h"

#include "00shcode/mytoolkit/text.h"

namespace {

constexpr std::int64_t kSecondsADay = 86400;

struct Date {
  int year = 1970;
  int month = 1;
  int day = 1;
};

bool IsLeapYear(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysOfMonth(const Date& date) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[date.month - 1] + (date.month == 2 && IsLeapYear(date.year) ? 1 : 0);
}

Date DateOfDay(std::int64_t days_since_1970) {
  Date date;
  std::int64_t left = days_since_1970;
  for (; left >= (IsLeapYear(date.year) ? 366 : 365); ++date.year) {
    left -= IsLeapYear(date.year) ? 366 : 365;
  }
  for (; left >= DaysOfMonth(date); ++date.month) left -= DaysOfMonth(date);
  date.day = static_cast<int>(left) + 1;
  return date;
}

}  // namespace

std::string ShowTimeOfDay(const FTTime& time) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  ft::SplitLocalTime(time.seconds, nullptr, nullptr, nullptr, &hour, &minute, &second, nullptr);
  return ft::FormatString("%02d:%02d:%02d.%03d", hour, minute, second, int{time.milliseconds});
}

std::string ShowUtcTime(const FTTime& time) {
  const Date date = DateOfDay(time.seconds / kSecondsADay);
  const int second = static_cast<int>(time.seconds % kSecondsADay);
  return ft::FormatString("%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", date.year, date.month, date.day,
                          second / 3600, second / 60 % 60, second % 60, int{time.milliseconds});
}

std::string ShowDuration(std::int64_t milliseconds) {
  const std::int64_t seconds = milliseconds / 1000;
  return ft::FormatString("%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                          static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
}
