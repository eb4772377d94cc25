#include "tests/support/test_window.h"

#include <windows.h>

namespace testkit {

namespace {

HWND AsHandle(unsigned int window) {
  return reinterpret_cast<HWND>(std::uintptr_t{window});
}

}  // namespace

unsigned int CreateTestWindow() {
  const HWND window =
      CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(window));
}

std::optional<TestMessage> TakeTestMessage(unsigned int window, std::chrono::milliseconds limit) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + limit;
  for (;;) {
    MSG taken;
    if (PeekMessageA(&taken, AsHandle(window), 0, 0, PM_REMOVE)) {
      return TestMessage{window, taken.message, taken.wParam, taken.lParam};
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) return std::nullopt;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(left.count()), QS_ALLINPUT);
  }
}

void DestroyTestWindow(unsigned int window) {
  DestroyWindow(AsHandle(window));
}

}  // namespace testkit
