#include "tools/posix/sudden_end.h"

#include <signal.h>

#include <atomic>

namespace {

constexpr int kSignals[] = {SIGHUP, SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

std::atomic<void (*)()> g_function{nullptr};
struct sigaction g_before[sizeof kSignals / sizeof *kSignals];

void SetBack() {
  int at = 0;
  for (const int signal_number : kSignals) sigaction(signal_number, &g_before[at++], nullptr);
}

extern "C" void OnSuddenEnd(int signal_number) {
  SetBack();
  EndSuddenly(signal_number);
}

}  // namespace

void BeforeSuddenEnd(void (*function)()) {
  g_function.store(function);
  struct sigaction action {};
  action.sa_handler = &OnSuddenEnd;
  int at = 0;
  for (const int signal_number : kSignals) {
    struct sigaction& before = g_before[at++];
    sigaction(signal_number, &action, &before);
    if (before.sa_handler == SIG_IGN) sigaction(signal_number, &before, nullptr);  // ends nothing
  }
}

void ForgetSuddenEnd() {
  if (g_function.exchange(nullptr) != nullptr) SetBack();
}

void EndSuddenly(int signal_number) {
  if (void (*const function)() = g_function.exchange(nullptr)) function();
  raise(signal_number);  // takes effect when the handler returns
}
