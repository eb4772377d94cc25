#include "00shcode/ftmtsockimpl/engine_thread.h"

CFTEngineThread::CFTEngineThread(CFTSockIfContract* protocol, const char* name)
    : m_protocol(protocol) {
  SetThreadName(name);
}

void CFTEngineThread::VWriteLog(const char* path, int line, std::int32_t level_code,
                                const char* format, va_list arguments) {
  m_protocol->VWriteLog(path, line, level_code, format, arguments);
}
