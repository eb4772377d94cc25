// Windows for systems that have none of their own: a queue of messages under a number.
// Backends of systems with windows do not implement this header.
#pragma once

#include <cstdint>

namespace platform {

struct WindowMessage {
  std::uint32_t window;
  std::uint32_t message;
  std::uintptr_t w_param;
  std::intptr_t l_param;
};

enum class WindowWait { kTaken, kTimeOut, kNoWindow };

// A new window; 0 when none can be made. DestroyMessageWindow releases it.
std::uint32_t CreateMessageWindow();

// Blocks until a message is there, at most timeout_ms (negative: without limit), and takes it.
// Any number of threads may wait; all get kNoWindow when the window is destroyed.
WindowWait WaitWindowMessage(std::uint32_t window, WindowMessage* message, int timeout_ms);

// A descriptor that polls readable while messages wait; the window owns it. -1: no such window.
int GetWindowDescriptor(std::uint32_t window);

// Discards what is queued. False: no such window.
bool DestroyMessageWindow(std::uint32_t window);

}  // namespace platform
