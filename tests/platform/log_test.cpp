#include "00shcode/mytoolkit/log.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "00shcode/mytoolkit/thread.h"
#include "tests/support/environment.h"
#include "tests/support/stderr_capture.h"

using namespace testkit;

namespace {

constexpr std::int64_t kSeconds = 946684798;  // two before the year 2000

void UseTimeZone(const char* zone) {
  SetVariable("TZ", zone);
  tzset();
}

std::string WithStampsOfNowCut(std::string text) {
  std::size_t at;
  while ((at = text.find("<20")) != std::string::npos) text.replace(at, 20, "<now");
  return text;
}

}  // namespace

TEST(LogLine, HasItsFieldsInPlace) {
  CMyThread log;
  const StderrCapture err;
  UseTimeZone("UTC0");
  log.WriteLogEx(kSeconds, 89, "src/file.cpp", 73, "tag", 0, 0, "%s %d\n", "text", 5);
  log.WriteLogEx(kSeconds, 7, "c:\\src\\exactly12.cp", 1, nullptr, -2, -1, "no line end");
  log.WriteLogEx(kSeconds, 999, "src/thirteen_.cpp", 123456, "", -12, 10054, "|%%|\n");
  log.WriteLogEx(kSeconds, 89, "dir/", 1, "", 0, 0, "\n");
  UseTimeZone("WST+01:00");
  log.WriteLogEx(kSeconds, 89, "a.cpp", 1, "", 0, 0, "\n");
  log.WriteLogEx(kSeconds, 0, "a.cpp", 1, "", 0, 0, "\n");
  log.WriteLogEx(0, 89, "a.cpp", 1, "", 0, 0, "\n");
  EXPECT_EQ(WithStampsOfNowCut(err.Text()),
            "<19991231 235958.089,    file.cpp,73, 0,tag>0: text 5\n"
            "<19991231 235958.007,exactly12.cp,1,-2,>-1: no line end"
            "<19991231 235958.999,thirteen_.cp,123456,-12,>10054: |%|\n"
            "<19991231 235958.089,            ,1, 0,>0: \n"
            "<19991231 225958.089,       a.cpp,1, 0,>0: \n"
            "<now,       a.cpp,1, 0,>0: \n"
            "<now,       a.cpp,1, 0,>0: \n");
}

TEST(LogLevel, FollowsTheLevelCodeUpToTheThreshold) {
  CMyThread log;
  const StderrCapture err;
  for (const std::int32_t code : {-7, 0, 1, 11}) {
    log.WriteLog("a/b.cpp", 5, code, "%d\n", code);
    log.WriteLogEx(0, 0, "a/b.cpp", 5, "full", code, 0, "%d\n", code);
  }
  EXPECT_EQ(WithStampsOfNowCut(err.Text()),
            "<now,       b.cpp,5,-2,>-7: -7\n"
            "<now,       b.cpp,5,-7,full>0: -7\n"
            "<now,       b.cpp,5, 0,>0: 0\n"
            "<now,       b.cpp,5, 0,full>0: 0\n");
}
