#include <windows.h>

namespace {

// The values that the compiler's runtime starts from and tests for.
constexpr LONG kNotDone = 0;
constexpr LONG kDone = 1;
constexpr LONG kBeingDone = 2;

}  // namespace

// Replaces pthread_once within the library (ld: --wrap=pthread_once). The compiler's runtime calls
// it while a module is being loaded, and the original then opens two handles for the loading thread
// that stay open when the module is unloaded again.
extern "C" int __wrap_pthread_once(LONG* once, void (*routine)()) {
  for (;;) {
    switch (InterlockedCompareExchange(once, kBeingDone, kNotDone)) {
      case kNotDone:
        routine();
        InterlockedExchange(once, kDone);
        return 0;
      case kDone:
        return 0;
      default:
        SwitchToThread();
    }
  }
}
