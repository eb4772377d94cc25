// The windows of client/ftwindow.h made of the system's own, so that one source serves hosts of all
// systems. Here all calls for one window come from the thread that made it, bodies that nobody took
// stay with the client, and there is no descriptor.
#include "client/ftwindow.h"

#include <windows.h>

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

HWND AsHandle(unsigned int window) {
  return reinterpret_cast<HWND>(std::uintptr_t{window});
}

// Rounded up: a wait that ends too early would be made again and again.
DWORD RemainingMs(Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
  return left.count() > 0 ? static_cast<DWORD>(left.count()) : 0;
}

}  // namespace

unsigned int FTCreateWindow() {
  const HWND window =
      CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(window));
}

int FTWaitMessage(unsigned int window, FTWindowMsg* msg, int ms) {
  if (msg == nullptr || !IsWindow(AsHandle(window))) return -1;
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(ms);
  for (;;) {
    MSG taken;
    if (PeekMessageA(&taken, AsHandle(window), 0, 0, PM_REMOVE)) {
      *msg = {window, taken.message, taken.wParam, taken.lParam};
      return 1;
    }
    const DWORD limit = ms < 0 ? INFINITE : RemainingMs(end);
    if (limit == 0) return 0;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, limit, QS_ALLINPUT);
  }
}

int FTDestroyWindow(unsigned int window) {
  return DestroyWindow(AsHandle(window)) ? 0 : -1;
}
