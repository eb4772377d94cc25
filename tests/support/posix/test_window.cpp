#include "tests/support/test_window.h"

#include "client/ftwindow.h"

namespace testkit {

unsigned int CreateTestWindow() {
  return FTCreateWindow();
}

std::optional<TestMessage> TakeTestMessage(unsigned int window, std::chrono::milliseconds limit) {
  FTWindowMsg taken{};
  if (FTWaitMessage(window, &taken, static_cast<int>(limit.count())) != 1) return std::nullopt;
  return TestMessage{taken.window, taken.message, taken.wParam, taken.lParam};
}

void DestroyTestWindow(unsigned int window) {
  FTDestroyWindow(window);
}

}  // namespace testkit
