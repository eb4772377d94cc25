#include "tests/support/descriptor_limit.h"

#include "tests/support/win32/socket_hooks.h"

namespace testkit {

DescriptorLimit::DescriptorLimit(int more)
    : m_before(SetSocketLimit(OpenSockets() + static_cast<std::size_t>(more))) {}

DescriptorLimit::~DescriptorLimit() {
  SetSocketLimit(m_before);
}

}  // namespace testkit
