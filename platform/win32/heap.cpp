#include "platform/heap.h"

#include <windows.h>

namespace platform {

bool FreeProcessHeapBlock(void* block, std::size_t bytes) {
  if (IsDebuggerPresent()) return false;
  const HANDLE heap = GetProcessHeap();
  if (!HeapValidate(heap, 0, block) || HeapSize(heap, 0, block) != bytes) return false;
  return HeapFree(heap, 0, block) != FALSE;
}

}  // namespace platform
