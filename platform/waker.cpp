#include "platform/backend.h"

namespace platform {

Waker::Waker() : m_signal(backend::OpenSignal()) {}

Waker::~Waker() {
  if (IsUsable()) backend::CloseSignal(m_signal);
}

void Waker::Wake() {
  if (IsUsable()) backend::Signal(m_signal);
}

void Waker::Clear() {
  if (IsUsable()) backend::Unsignal(m_signal);
}

}  // namespace platform
