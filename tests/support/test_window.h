// Windows as the platform has them; all calls for one window come from the thread that made it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace testkit {

struct TestMessage {
  unsigned int window;
  unsigned int message;
  std::uintptr_t w_param;
  std::intptr_t l_param;
};

unsigned int CreateTestWindow();  // 0 when none can be made
// Waits for the next message; nothing when none comes within the limit.
std::optional<TestMessage> TakeTestMessage(unsigned int window, std::chrono::milliseconds limit);
void DestroyTestWindow(unsigned int window);

}  // namespace testkit
