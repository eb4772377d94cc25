#include "tools/common/interrupt.h"

#include <windows.h>

#include <atomic>

namespace {

std::atomic<bool> g_interrupted{false};

// Runs on a thread of the system's.
BOOL WINAPI OnInterrupt(DWORD event) {
  if (g_interrupted.exchange(true)) return FALSE;
  // The system ends the process as soon as it has been told that the console closes.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
  return TRUE;
}

}  // namespace

void CatchInterrupts() {
  SetConsoleCtrlHandler(&OnInterrupt, TRUE);
}

bool IsInterrupted() {
  return g_interrupted.load();
}
