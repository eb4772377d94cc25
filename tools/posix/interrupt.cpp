#include "tools/common/interrupt.h"

#include <atomic>
#include <csignal>

#include "tools/posix/sudden_end.h"

namespace {

std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");

extern "C" void OnSecondInterrupt(int signal_number) {
  std::signal(signal_number, SIG_DFL);
  EndSuddenly(signal_number);
}

extern "C" void OnInterrupt(int signal_number) {
  g_interrupted.store(true);
  std::signal(signal_number, &OnSecondInterrupt);
}

}  // namespace

void CatchInterrupts() {
  std::signal(SIGINT, &OnInterrupt);
  std::signal(SIGTERM, &OnInterrupt);
}

bool IsInterrupted() {
  return g_interrupted.load();
}
