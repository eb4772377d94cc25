#pragma once

#include <cstddef>

namespace testkit {

// While it lives the process can open only so many more descriptors (sockets, files, events; on
// Windows sockets) at the same time. Those that are open stay usable; one that is closed may be
// replaced. One at a time.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(int more);
  ~DescriptorLimit();
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  std::size_t m_before;
};

}  // namespace testkit
