#include "tests/support/memory_limit.h"

#include <cerrno>
#include <cstddef>

#if !defined(TESTKIT_SANITIZED)
extern "C" void* __libc_malloc(std::size_t bytes);

extern "C" void* malloc(std::size_t bytes) {
  if (!testkit::MemoryLimit::Refuses()) return __libc_malloc(bytes);
  errno = ENOMEM;
  return nullptr;
}
#endif
