#pragma once

#include <cstdarg>
#include <cstdint>

#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/text.h"

class CMyThread;

struct FTLogLevel {
  std::int32_t level;
  std::int32_t error_code;
};

namespace ft {

// Level codes of the short log calls.
constexpr std::int32_t kLogError = -1;
constexpr std::int32_t kLogNotice = 0;

// A negative code is an error: level -2 and the code itself as error code. Other codes are levels.
FTLogLevel LevelOfCode(std::int32_t level_code);

// Writes one line to the standard error stream: the prefix, then the message, with no line end of
// its own. Any thread; lines of several threads may come between a prefix and its message.
void WriteLogLine(const FTTime& time, const char* path, int line, const char* tag,
                  const FTLogLevel& level, const char* format, va_list arguments) FT_PRINTF(6, 0);

}  // namespace ft

// The toolkit's own lines. Source names and line numbers are part of their format.
namespace ToolkitLog {

void ThreadWillExit(CMyThread* log, const char* thread_name);
void EnterThreadFailed(CMyThread* log, const char* thread_name);

}  // namespace ToolkitLog
