#include "tests/support/process.h"

#include <winsock2.h>

#include <windows.h>

#include <tlhelp32.h>

namespace testkit {

std::size_t CountDescriptors() {
  std::size_t count = 0;
  for (SOCKET number = 4; number < 20000; number += 4) {
    int type = 0;
    int length = sizeof type;
    auto* const bytes = reinterpret_cast<char*>(&type);
    if (getsockopt(number, SOL_SOCKET, SO_TYPE, bytes, &length) == 0) ++count;
  }
  return count;
}

std::size_t CountThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  std::size_t count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

void SetVariable(const char* name, const char* value) {
  _putenv_s(name, value);
}

}  // namespace testkit
