#include "tools/terminal/console.h"

#include <cstdio>

#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/lock.h"
#include "00shcode/mytoolkit/text.h"

namespace {

std::string TimeOfDay() {
  const FTTime now = ft::GetNowTime();
  int hour = 0;
  int minute = 0;
  int second = 0;
  ft::SplitLocalTime(now.seconds, nullptr, nullptr, nullptr, &hour, &minute, &second, nullptr);
  return ft::FormatString("%02d:%02d:%02d.%03d", hour, minute, second, int{now.milliseconds});
}

}  // namespace

void PrintLine(const std::string& text) {
  static CFTLock lock;
  const CFTScopedLock guard(&lock);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void PrintStamped(const std::string& text) {
  PrintLine(TimeOfDay() + "  " + text);
}
