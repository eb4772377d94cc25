#include "00shcode/mytoolkit/thread.h"

#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/log.h"

namespace {

// Never destroyed: a client may still be running while the process exits.
CFTLockedValue<std::int32_t>& ThreadCounter() {
  static auto* const counter = new CFTLockedValue<std::int32_t>;
  return *counter;
}

}  // namespace

CMyThread::CMyThread() : m_thread_id(platform::CurrentThreadId()) {}

CMyThread::~CMyThread() = default;

std::int32_t CMyThread::Run() {
  m_thread_id.Set(platform::CurrentThreadId());
  if (OnEnterThread() < 0) {
    ToolkitLog::EnterThreadFailed(this, GetThreadName().c_str());
    return -1;
  }
  while (IsRunning() != 0) RunOnce();
  OnExitThread();
  return 0;
}

std::int32_t CMyThread::OnEnterThread() {
  const CFTScopedLock guard(&m_running_lock);
  m_running = m_stop_requested ? 0 : 1;
  return 0;
}

std::int32_t CMyThread::RunOnce() {
  return 0;
}

void CMyThread::OnExitThread() {
  {
    const CFTScopedLock guard(&m_running_lock);
    m_running = 0;
  }
  const std::string name = GetThreadName();
  if (!name.empty()) ToolkitLog::ThreadWillExit(this, name.c_str());
}

void CMyThread::WriteLogEx(std::int64_t seconds, std::uint16_t milliseconds, const char* path,
                           int line, const char* tag, std::int32_t level, std::int32_t error_code,
                           const char* format, ...) {
  if (!PassesThreshold(level)) return;
  va_list arguments;
  va_start(arguments, format);
  VWriteLogEx(seconds, milliseconds, path, line, tag, level, error_code, format, arguments);
  va_end(arguments);
}

void CMyThread::WriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                         ...) {
  if (!PassesThreshold(LevelOfCode(level_code).level)) return;
  va_list arguments;
  va_start(arguments, format);
  VWriteLog(path, line, level_code, format, arguments);
  va_end(arguments);
}

void CMyThread::VWriteLogEx(std::int64_t seconds, std::uint16_t milliseconds, const char* path,
                            int line, const char* tag, std::int32_t level, std::int32_t error_code,
                            const char* format, va_list arguments) {
  if (!PassesThreshold(level)) return;
  FTTime time{seconds, milliseconds};
  if (seconds == 0 || milliseconds == 0) time = GetNowTime();
  WriteLogLine(time, path, line, tag == nullptr ? "" : tag, {level, error_code}, format, arguments);
}

void CMyThread::VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                          va_list arguments) {
  const FTLogLevel level = LevelOfCode(level_code);
  VWriteLogEx(0, 0, path, line, "", level.level, level.error_code, format, arguments);
}

void CMyThread::StopThread() {
  const CFTScopedLock guard(&m_running_lock);
  m_stop_requested = true;
  m_running = 0;
}

std::int32_t CMyThread::StartThread(std::int32_t stack_bytes) {
  {
    const CFTScopedLock guard(&m_running_lock);
    m_stop_requested = false;
  }
  const platform::ThreadHandle handle =
      platform::StartThread(&CMyThread::ThreadEntry, this, stack_bytes);
  if (handle == nullptr) return -1;
  m_thread_handle = handle;
  ThreadCounter().Increment();
  return 0;
}

void CMyThread::WaitThreadExit() {
  if (m_thread_handle == nullptr) return;
  platform::JoinThread(m_thread_handle);
  m_thread_handle = nullptr;
  ThreadCounter().Add(-1);
}

std::int32_t CMyThread::GetThreadCount() {
  return ThreadCounter().Get();
}

std::int32_t CMyThread::IsRunning() const {
  const CFTScopedLock guard(&m_running_lock);
  return m_running;
}

void CMyThread::SetThreadName(const std::string& name) {
  m_thread_name.Set(name);
}

std::string CMyThread::GetThreadName() const {
  return m_thread_name.Get();
}

std::uint32_t CMyThread::GetThreadId() const {
  return m_thread_id.Get();
}

bool CMyThread::IsOwnThread() const {
  return GetThreadId() == platform::CurrentThreadId();
}

void CMyThread::ThreadEntry(void* thread) {
  auto* const self = static_cast<CMyThread*>(thread);
  const std::string name = self->GetThreadName();
  if (!name.empty()) platform::NameCurrentThread(name.c_str());
  self->Run();
}

bool CMyThread::PassesThreshold(std::int32_t level) const {
  const CFTScopedLock guard(&m_log_lock);
  return level <= m_log_threshold.Get();
}
