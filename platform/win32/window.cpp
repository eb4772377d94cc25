#include <windows.h>

#include "platform/platform.h"

namespace platform {

// The system keeps what is posted to a window that is destroyed, or discards it without a word, so
// there is nobody who could call discard.
bool PostToWindow(std::uint32_t window, std::uint32_t message, std::uintptr_t w_param,
                  std::intptr_t l_param, DiscardFunction /*discard*/) {
  const auto handle = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window));
  return PostMessageA(handle, message, w_param, l_param) != FALSE;
}

}  // namespace platform
