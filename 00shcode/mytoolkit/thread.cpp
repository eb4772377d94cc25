#include "00shcode/mytoolkit/thread.h"

#include <cassert>

#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/log.h"

namespace {

constexpr std::int32_t kLogThreshold = 0;

bool PassesThreshold(std::int32_t level) {
  return level <= kLogThreshold;
}

// Never destroyed: a client may still be running while the process exits.
CFTLockedValue<std::int32_t>& ThreadCounter() {
  static auto* const counter = new CFTLockedValue<std::int32_t>;
  return *counter;
}

}  // namespace

CMyThread::CMyThread() : m_thread_id(platform::CurrentThreadId()) {}

CMyThread::~CMyThread() {
  assert(m_thread_handle == nullptr);
}

std::int32_t CMyThread::Run() {
  m_thread_id.store(platform::CurrentThreadId());
  if (OnEnterThread() < 0) {
    ToolkitLog::EnterThreadFailed(this, GetThreadName().c_str());
    return -1;
  }
  while (IsRunning() != 0) RunOnce();
  OnExitThread();
  return 0;
}

std::int32_t CMyThread::OnEnterThread() {
  State before = State::kNotEntered;
  m_state.compare_exchange_strong(before, State::kRunning);
  return 0;
}

std::int32_t CMyThread::RunOnce() {
  return 0;
}

void CMyThread::OnExitThread() {
  m_state.store(State::kStopping);
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
  if (!PassesThreshold(ft::LevelOfCode(level_code).level)) return;
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
  if (seconds == 0 || milliseconds == 0) time = ft::GetNowTime();
  ft::WriteLogLine(time, path, line, tag == nullptr ? "" : tag, {level, error_code}, format,
                   arguments);
}

void CMyThread::VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                          va_list arguments) {
  const FTLogLevel level = ft::LevelOfCode(level_code);
  VWriteLogEx(0, 0, path, line, "", level.level, level.error_code, format, arguments);
}

void CMyThread::StopThread() {
  m_state.store(State::kStopping);
}

std::int32_t CMyThread::StartThread(std::int32_t stack_bytes) {
  assert(m_thread_handle == nullptr);
  m_state.store(State::kNotEntered);
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

void CMyThread::SetThreadName(const std::string& name) {
  m_thread_name.Set(name);
}

std::string CMyThread::GetThreadName() const {
  return m_thread_name.Get();
}

void CMyThread::AssertOwnThread() const {
  assert(GetThreadId() == platform::CurrentThreadId());
}

void CMyThread::ThreadEntry(void* thread) {
  auto* const self = static_cast<CMyThread*>(thread);
  const std::string name = self->GetThreadName();
  if (!name.empty()) platform::NameCurrentThread(name.c_str());
  self->Run();
}
