#include "tests/msvc_abi/inbox.h"

#include "tests/msvc_abi/system.h"

namespace {

constexpr unsigned kLimitMs = 10000;
constexpr unsigned kRemove = 1;
constexpr unsigned kAnyInput = 0x04FF;

Handle MessageOnly() {
  return reinterpret_cast<Handle>(-3);
}

}  // namespace

Inbox::Inbox()
    : m_window(CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, MessageOnly(), nullptr, nullptr,
                               nullptr)) {}

Inbox::~Inbox() {
  DestroyWindow(m_window);
}

bool Inbox::Take(char** body, int* value) {
  const unsigned start = GetTickCount();
  WindowMessage message;
  while (PeekMessageA(&message, m_window, kMessage, kMessage, kRemove) == 0) {
    const unsigned waited = GetTickCount() - start;
    if (waited >= kLimitMs) return false;
    MsgWaitForMultipleObjects(0, nullptr, 0, kLimitMs - waited, kAnyInput);
  }
  *body = reinterpret_cast<char*>(message.w_param);
  *value = message.l_param;
  return true;
}

bool Inbox::TakeEvent(int event) {
  char* body = nullptr;
  int value = 0;
  return Take(&body, &value) && body == nullptr && value == event;
}
