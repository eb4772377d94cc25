#include "tests/support/wake_event.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace testkit {

WakeEvent::WakeEvent() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (m_descriptor.Get() < 0) ThrowSystemError("eventfd");
}

void WakeEvent::Set() const {
  const std::uint64_t one = 1;
  if (write(m_descriptor.Get(), &one, sizeof one) < 0 && errno != EAGAIN) ThrowSystemError("write");
}

void WakeEvent::Clear() const {
  std::uint64_t count = 0;
  while (read(m_descriptor.Get(), &count, sizeof count) > 0) {
  }
}

}  // namespace testkit
