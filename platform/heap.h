// The heap that the modules of a process share, on systems that give every process one.
#pragma once

#include <cstddef>

namespace platform {

// Frees the block if it is certain to be one whole block of the process's own heap, allocated with
// exactly this size. Anything else, a block of another heap or a place inside a block, is left
// alone: false. Leaves every block alone while a debugger watches, because the check would stop
// there.
bool FreeProcessHeapBlock(void* block, std::size_t bytes);

}  // namespace platform
