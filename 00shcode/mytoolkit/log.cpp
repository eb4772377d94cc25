#include "00shcode/mytoolkit/log.h"

#include <cstdio>
#include <string>

#include "00shcode/mytoolkit/thread.h"
#include "platform/platform.h"

namespace {

constexpr std::size_t kFileFieldWidth = 12;
constexpr int kMostWaitMs = 1000;  // for a standard error that nobody reads

std::string FileField(const char* path) {
  std::string directory;
  std::string file_name;
  ft::SplitPath(path, &directory, &file_name);
  return ft::PadString(file_name.c_str(), kFileFieldWidth, ft::kAlignRight, ' ');
}

std::string TimeStamp(const FTTime& time) {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  ft::SplitLocalTime(time.seconds, &year, &month, &day, &hour, &minute, &second, nullptr);
  return ft::FormatString("%04d%02d%02d %02d%02d%02d.%03d", year, month, day, hour, minute, second,
                          time.milliseconds);
}

}  // namespace

FTLogLevel ft::LevelOfCode(std::int32_t level_code) {
  if (level_code < 0) return {-2, level_code};
  return {level_code, 0};
}

void ft::WriteLogLine(const FTTime& time, const char* path, int line, const char* tag,
                      const FTLogLevel& level, const char* format, va_list arguments) {
  if (!platform::WaitForStandardError(kMostWaitMs)) return;
  const platform::BrokenPipeGuard guard;
  std::fprintf(stderr, "<%s,%s,%d,%2d,%s>%d: ", TimeStamp(time).c_str(), FileField(path).c_str(),
               line, level.level, tag, level.error_code);
  std::vfprintf(stderr, format, arguments);
}

namespace ToolkitLog {

void ThreadWillExit(CMyThread* log, const char* thread_name) {
  log->WriteLog("mytoolkit.h", 1223, 11, "ThreadId[%s] will exit now.\n", thread_name);
}

void EnterThreadFailed(CMyThread* log, const char* thread_name) {
  log->WriteLog("mytoolkit.cpp", 2945, ft::kLogError,
                "OnEnterThread[%s] return failed, will exit now.\n", thread_name);
}

}  // namespace ToolkitLog
