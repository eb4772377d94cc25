#pragma once

#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

namespace testkit {

// What was given to VWriteLog, and when.
struct LogLine {
  std::string source;
  int line = 0;
  std::int32_t level_code = 0;
  std::string text;
  std::chrono::steady_clock::time_point time = std::chrono::steady_clock::now();
};

inline LogLine NewLogLine(const char* path, int line, std::int32_t level_code, const char* format,
                          va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  return {path, line, level_code, text};
}

}  // namespace testkit
