#include "tests/support/thread_limit.h"

#include <process.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "tests/support/win32/import.h"

namespace testkit {

namespace {

constexpr int kNoLimit = -1;

std::atomic<int> g_remaining{kNoLimit};
std::atomic<int> g_refused{0};

// False when the limit is reached; otherwise one thread fewer is left.
bool TakePlace() {
  int remaining = g_remaining.load();
  while (remaining > 0 && !g_remaining.compare_exchange_weak(remaining, remaining - 1)) {
  }
  return remaining != 0;
}

std::uintptr_t __cdecl BeginThread(void* security, unsigned stack_bytes,
                                   unsigned(__stdcall* main)(void*), void* argument, unsigned flags,
                                   unsigned* id) {
  static const auto next = SystemFunction<decltype(&BeginThread)>("msvcrt.dll", "_beginthreadex");
  if (TakePlace()) return next(security, stack_bytes, main, argument, flags, id);
  ++g_refused;
  errno = EAGAIN;
  return 0;
}

}  // namespace

decltype(&BeginThread) g_import_of_beginthreadex __asm__("__imp___beginthreadex") = &BeginThread;

ThreadLimit::ThreadLimit(int more) {
  g_refused = 0;
  g_remaining = more;
}

ThreadLimit::~ThreadLimit() {
  g_remaining = kNoLimit;
}

int ThreadLimit::RefusedCount() const {
  return g_refused;
}

}  // namespace testkit
