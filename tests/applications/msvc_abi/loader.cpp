// Loads the application, and with it the library, lets both go again, and at last ends with a
// client that runs. The arguments are a server's address and port.
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/process.h"

namespace {

int g_faults = 0;

void Report(bool holds, const char* what) {
  if (holds) return;
  ++g_faults;
  std::fprintf(stderr, "does not hold: %s\n", what);
}

// Otherwise the result of a crash would be the debugger's.
LONG WINAPI EndAfterCrash(EXCEPTION_POINTERS*) {
  Report(false, "the application does not crash");
  TerminateProcess(GetCurrentProcess(), 1);
  return EXCEPTION_CONTINUE_SEARCH;
}

template <typename... Arguments>
void Call(HMODULE application, const char* name, Arguments... arguments) {
  void* const function = reinterpret_cast<void*>(GetProcAddress(application, name));
  reinterpret_cast<void (*)(Arguments...)>(function)(arguments...);
}

}  // namespace

int main(int, char** argv) {
  char* const host = argv[1];
  const int port = std::atoi(argv[2]);
  SetUnhandledExceptionFilter(&EndAfterCrash);
  for (int load = 0; load < 3; ++load) {
    const std::size_t threads = testkit::CountThreads();
    const HMODULE application = LoadLibraryA("msvc_application.dll");
    Call(application, "RunCases", &Report, host, port);
    FreeLibrary(application);
    Report(GetModuleHandleA("ftclient.dll") == nullptr, "the library is let go");
    Report(testkit::CountThreads() == threads, "no thread is left");
  }
  Call(LoadLibraryA("msvc_application.dll"), "LeaveRunning", host, port);
  return g_faults == 0 ? 0 : 1;
}
