#include "tools/common/console.h"

#include <cstdio>

#include "00shcode/mytoolkit/lock.h"
#include "tools/common/time_text.h"

void PrintLine(const std::string& text) {
  static CFTLock lock;
  const CFTScopedLock guard(&lock);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void PrintStamped(const std::string& text) {
  PrintLine(ShowTimeOfDay(ft::GetNowTime()) + "  " + text);
}
