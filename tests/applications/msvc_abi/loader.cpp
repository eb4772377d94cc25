// Loads the application, and with it the library, lets both go again, and at last ends with a
// client that runs. The arguments are a server's address and port.
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/process.h"

namespace {

void Report(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::_Exit(1);
}

// Otherwise the result of a crash would be the debugger's.
LONG WINAPI EndAfterCrash(EXCEPTION_POINTERS*) {
  Report(false, "the application does not crash");
  return EXCEPTION_CONTINUE_SEARCH;
}

void Call(HMODULE application, const char* name, char** argv) {
  using Function = void (*)(decltype(&Report), char* host, int port);
  void* const function = reinterpret_cast<void*>(GetProcAddress(application, name));
  reinterpret_cast<Function>(function)(&Report, argv[1], std::atoi(argv[2]));
}

}  // namespace

int main(int, char** argv) {
  SetUnhandledExceptionFilter(&EndAfterCrash);
  for (int load = 0; load < 3; ++load) {
    const std::size_t threads = testkit::CountThreads();
    const HMODULE application = LoadLibraryA("msvc_application.dll");
    Call(application, "RunCases", argv);
    FreeLibrary(application);
    Report(GetModuleHandleA("ftclient.dll") == nullptr, "the library is let go");
    Report(testkit::CountThreads() == threads, "no thread is left");
  }
  Call(LoadLibraryA("msvc_application.dll"), "LeaveRunning", argv);
}
