#include "tests/support/process_usage.h"

#include <windows.h>

#include <tlhelp32.h>

#include <cstdlib>

#include "tests/support/environment.h"
#include "tests/support/socket_io.h"

namespace testkit {

namespace {

// Of this system's clock; they have 100 ns each.
std::chrono::microseconds AsDuration(const FILETIME& time) {
  const auto ticks = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  return std::chrono::microseconds(ticks / 10);
}

}  // namespace

std::size_t CountHandles() {
  DWORD handles = 0;
  if (!GetProcessHandleCount(GetCurrentProcess(), &handles)) ThrowSystemError("handle count");
  return handles;
}

std::size_t CountThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) ThrowSystemError("list of threads");
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  std::size_t count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

std::chrono::microseconds CpuTime() {
  FILETIME start, end, kernel, user;
  if (!GetProcessTimes(GetCurrentProcess(), &start, &end, &kernel, &user)) {
    ThrowSystemError("process times");
  }
  return AsDuration(kernel) + AsDuration(user);
}

void SetVariable(const char* name, const char* value) {
  _putenv_s(name, value);
}

}  // namespace testkit
