#include "client/ftwindow.h"

#include <new>

#include "platform/message_window.h"

namespace {

// No exception leaves a function with C linkage.
template <typename Result, typename Call>
Result Guarded(Result failure, Call call) noexcept {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    return failure;
  }
}

int TakeMessage(unsigned int window, FTWindowMsg* msg, int ms) {
  platform::WindowMessage taken;
  switch (platform::WaitWindowMessage(window, &taken, ms)) {
    case platform::WindowWait::kTaken:
      *msg = {taken.window, taken.message, taken.w_param, taken.l_param};
      return 1;
    case platform::WindowWait::kTimeOut:
      return 0;
    default:
      return -1;
  }
}

}  // namespace

extern "C" {

unsigned int FTCreateWindow(void) {
  return Guarded(0U, [] { return platform::CreateMessageWindow(); });
}

int FTWaitMessage(unsigned int window, FTWindowMsg* msg, int ms) {
  return msg == nullptr ? -1 : Guarded(-1, [&] { return TakeMessage(window, msg, ms); });
}

int FTGetWindowFd(unsigned int window) {
  return Guarded(-1, [&] { return platform::GetWindowDescriptor(window); });
}

int FTDestroyWindow(unsigned int window) {
  return Guarded(-1, [&] { return platform::DestroyMessageWindow(window) ? 0 : -1; });
}

}  // extern "C"
