#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "platform/platform.h"
#include "platform/posix/futex.h"
#include "platform/posix/monotonic.h"
#include "platform/posix/recursive_lock.h"

namespace platform {

namespace {

struct ThreadStart {
  ThreadMain main;
  void* argument;
};

struct RunningThread {
  pthread_t id;
};

extern "C" void* RunThread(void* start_argument) {
  const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(start_argument));
  start->main(start->argument);
  return nullptr;
}

bool CreateThread(pthread_t* id, ThreadStart* start, int stack_bytes) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  bool usable = true;
  if (stack_bytes > 0) {
    const long bytes = std::max<long>(stack_bytes, sysconf(_SC_THREAD_STACK_MIN));
    usable = pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(bytes)) == 0;
  }
  const bool created = usable && pthread_create(id, &attributes, RunThread, start) == 0;
  pthread_attr_destroy(&attributes);
  return created;
}

RecursiveLock* AsMutex(unsigned char* storage) {
  return std::launder(reinterpret_cast<RecursiveLock*>(storage));
}

struct EventState {
  std::atomic<std::uint32_t> signalled{0};
  std::atomic<std::uint32_t> waiters{0};
};

EventState* AsEvent(unsigned char* storage) {
  return std::launder(reinterpret_cast<EventState*>(storage));
}

}  // namespace

ThreadHandle StartThread(ThreadMain main, void* argument, int stack_bytes) {
  auto start = std::make_unique<ThreadStart>(ThreadStart{main, argument});
  auto thread = std::make_unique<RunningThread>();
  if (!CreateThread(&thread->id, start.get(), stack_bytes)) return nullptr;
  start.release();
  return thread.release();
}

void JoinThread(ThreadHandle handle) {
  const std::unique_ptr<RunningThread> thread(static_cast<RunningThread*>(handle));
  pthread_join(thread->id, nullptr);
}

std::uint32_t CurrentThreadId() {
  thread_local const auto id = static_cast<std::uint32_t>(syscall(SYS_gettid));
  return id;
}

void NameCurrentThread(const char* name) {
  char cut[16];
  std::strncpy(cut, name, sizeof cut - 1);
  cut[sizeof cut - 1] = '\0';
  pthread_setname_np(pthread_self(), cut);
}

void SleepMs(std::uint32_t milliseconds) {
  const timespec deadline = MonotonicDeadline(milliseconds);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

void YieldThread() {
  sched_yield();
}

Mutex::Mutex() {
  static_assert(sizeof(RecursiveLock) <= sizeof m_storage && alignof(RecursiveLock) <= 8);
  new (m_storage) RecursiveLock;
}

Mutex::~Mutex() = default;

void Mutex::Lock() {
  AsMutex(m_storage)->Lock();
}

void Mutex::Unlock() {
  AsMutex(m_storage)->Unlock();
}

Event::Event() {
  static_assert(sizeof(EventState) <= sizeof m_storage && alignof(EventState) <= 8);
  new (m_storage) EventState;
}

Event::~Event() = default;

// Whoever signals looks for waiters afterwards, and a waiter counts itself before it looks for a
// signal: one of them sees the other.
bool Event::Set() {
  auto* state = AsEvent(m_storage);
  if (state->signalled.exchange(1) == 0 && state->waiters.load() > 0) {
    FutexWake(state->signalled, 1);
  }
  return true;
}

bool Event::Wait(std::uint32_t milliseconds) {
  auto* state = AsEvent(m_storage);
  if (state->signalled.exchange(0) != 0) return true;
  if (milliseconds == 0) return false;
  const bool limited = milliseconds != kNoLimit;
  const timespec deadline = MonotonicDeadline(limited ? milliseconds : 0);
  ++state->waiters;
  bool in_time = true;
  bool signalled = false;
  while (!signalled && in_time) {
    in_time = FutexWait(state->signalled, 0, limited ? &deadline : nullptr);
    signalled = state->signalled.exchange(0) != 0;
  }
  --state->waiters;
  return signalled;
}

}  // namespace platform
