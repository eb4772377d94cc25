#include "client/ftwindow.h"

#include "platform/message_window.h"

extern "C" {

unsigned int FTCreateWindow(void) {
  return platform::CreateMessageWindow();
}

int FTWaitMessage(unsigned int window, FTWindowMsg* msg, int ms) {
  if (msg == nullptr) return -1;
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

int FTGetWindowFd(unsigned int window) {
  return platform::GetWindowDescriptor(window);
}

int FTDestroyWindow(unsigned int window) {
  return platform::DestroyMessageWindow(window) ? 0 : -1;
}

}  // extern "C"
