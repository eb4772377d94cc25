#include <windows.h>

#include "platform/platform.h"

namespace platform {

bool IsWindowCapacityFixed() {
  return false;
}

// The system keeps what is posted to a window that is destroyed, or discards it without a word, so
// there is nobody who could call discard.
PostResult PostToWindow(std::uint32_t window, const WindowPost* posts, std::size_t count,
                        DiscardFunction /*discard*/) {
  const auto handle = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window));
  for (std::size_t posted = 0; posted < count; ++posted) {
    const WindowPost& post = posts[posted];
    if (PostMessageA(handle, post.message, post.w_param, post.l_param) != FALSE) continue;
    const bool full = GetLastError() == ERROR_NOT_ENOUGH_QUOTA;
    return {posted, full ? WindowState::kFull : WindowState::kGone};
  }
  return {count, WindowState::kOpen};
}

}  // namespace platform
