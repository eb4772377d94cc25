#pragma once

#include <cstdint>

class CMyThread;

// The message queue's own line. Its source name and line number are part of its format.
namespace QueueLog {

void MsgNotDealt(CMyThread* log, const char* what, std::uint32_t id);

}  // namespace QueueLog
