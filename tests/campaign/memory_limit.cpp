#include "tests/campaign/memory_limit.h"

#include <cerrno>
#include <cstddef>

bool campaign::MemoryLimit::Refuses() {
  if (s_failing == 0 || s_before-- > 0) return false;
  s_before = 0;
  --s_failing;
  return true;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* __libc_malloc(std::size_t bytes);

extern "C" void* malloc(std::size_t bytes) {
  if (!campaign::MemoryLimit::Refuses()) return __libc_malloc(bytes);
  errno = ENOMEM;
  return nullptr;
}
#endif
