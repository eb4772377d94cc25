#include "tests/support/socket_io.h"

#include <algorithm>
#include <utility>

namespace testkit {

std::chrono::nanoseconds Deadline::Remaining() const {
  return std::max<std::chrono::nanoseconds>(m_end - std::chrono::steady_clock::now(),
                                            std::chrono::nanoseconds(0));
}

Descriptor::Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    Close();
    m_fd = std::exchange(other.m_fd, -1);
  }
  return *this;
}

}  // namespace testkit
