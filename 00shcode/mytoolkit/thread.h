#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>

#include "00shcode/mytoolkit/locked_value.h"
#include "00shcode/mytoolkit/text.h"
#include "platform/platform.h"

// Base of every worker: at most one thread that runs virtual steps while a running flag is set,
// and the log calls that all threads write their lines through.
//
// The owner constructs, starts, stops (StopThread, or a derived class's message), joins
// (WaitThreadExit) and destroys the object, in this order and on its own threads. Run and what it
// calls execute on the worker.
class CMyThread {
 public:
  CMyThread();
  // Precondition: no thread is attached (never started, or joined).
  virtual ~CMyThread();
  CMyThread(const CMyThread&) = delete;
  CMyThread& operator=(const CMyThread&) = delete;

  // The thread's body. 0, or -1 when OnEnterThread failed.
  virtual std::int32_t Run();

 protected:
  // First step on the worker; a negative result ends the thread before its loop. An override calls
  // this version first, which sets the running flag unless a stop was asked for already.
  virtual std::int32_t OnEnterThread();

  // One pass of the loop; the result is not looked at.
  virtual std::int32_t RunOnce();

  // Last step on the worker after the loop; an override ends by calling this version.
  virtual void OnExitThread();

 public:
  // Log calls, any thread. A line is written when its level is 0 or below.
  virtual void WriteLogEx(std::int64_t seconds, std::uint16_t milliseconds, const char* path,
                          int line, const char* tag, std::int32_t level, std::int32_t error_code,
                          const char* format, ...) FT_PRINTF(9, 10);
  virtual void WriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                        ...) FT_PRINTF(5, 6);
  virtual void VWriteLogEx(std::int64_t seconds, std::uint16_t milliseconds, const char* path,
                           int line, const char* tag, std::int32_t level, std::int32_t error_code,
                           const char* format, va_list arguments) FT_PRINTF(9, 0);
  // Makes no threshold test of its own. Overridden to hand lines to another object.
  virtual void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                         va_list arguments) FT_PRINTF(5, 0);

  // Any thread. Asks the worker to end after its current pass; does not wait for it. A request made
  // before the worker has entered is kept. An override also wakes the worker where it may sleep.
  virtual void StopThread();

  // Starts the worker; 0 or less means the platform's default stack. 0, or -1 with nothing changed
  // when the platform cannot make a thread. Forgets earlier stop requests.
  // Precondition: no thread is attached.
  std::int32_t StartThread(std::int32_t stack_bytes);

  // Owner only. Blocks without limit until the worker has ended; returns at once without one.
  void WaitThreadExit();

  // Threads started and not yet joined, in the whole process.
  static std::int32_t GetThreadCount();

  // Any thread, without a lock.
  std::int32_t IsRunning() const { return m_state.load() == State::kRunning ? 1 : 0; }
  std::uint32_t GetThreadId() const { return m_thread_id.load(); }

  void SetThreadName(const std::string& name);
  std::string GetThreadName() const;

 protected:
  // Debug builds check that the caller is the worker, or, before it has started, the constructing
  // thread.
  void AssertOwnThread() const;

 private:
  enum class State { kNotEntered, kRunning, kStopping };

  static void ThreadEntry(void* thread);

  // Written by the worker (entering, leaving) and by whoever stops it. One value, so that a stop
  // request cannot be overwritten by entering; nothing else depends on its order.
  std::atomic<State> m_state{State::kNotEntered};
  std::atomic<std::uint32_t> m_thread_id;

  // With a lock of its own.
  CFTLockedValue<std::string> m_thread_name;

  // The owner's alone.
  platform::ThreadHandle m_thread_handle = nullptr;
};
