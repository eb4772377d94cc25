#include <windows.h>

#include "platform/platform.h"

namespace platform {

// The system keeps what is posted to a window that is destroyed, or discards it without a word, so
// there is nobody who could call discard.
std::size_t PostToWindow(std::uint32_t window, const WindowPost* posts, std::size_t count,
                         DiscardFunction /*discard*/) {
  const auto handle = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window));
  std::size_t posted = 0;
  while (posted < count && PostMessageA(handle, posts[posted].message, posts[posted].w_param,
                                        posts[posted].l_param) != FALSE) {
    ++posted;
  }
  return posted;
}

}  // namespace platform
