#pragma once

#include <cstddef>
#include <cstdint>

// Memory for packages and their bodies. One thread allocates most of it and another one frees it,
// so blocks that come back wait here to be used again, instead of going through the heap's locks.
namespace ft {

// A block of at least so many bytes, aligned to 8. Any thread. Throws std::bad_alloc.
void* AllocBlock(std::size_t bytes);

// Any thread, and at any time, after main too. Null is ignored. Never blocks.
void FreeBlock(void* block) noexcept;

// Counts an allocated block with so many bytes, until it is freed. Whoever frees it comes later.
void CountBlock(void* block, std::uint32_t bytes) noexcept;

// The bytes of all counted blocks of the process. Any thread.
std::size_t CountedBytes() noexcept;

// Gives all blocks that wait back to the system. Any thread.
void FreeIdleBlocks() noexcept;

// Gives back those of sizes that nobody has asked for since the last call, and of each other size
// what is more than 4 MiB. Any thread; to be called every few seconds.
void TidyIdleBlocks() noexcept;

}  // namespace ft
