#include "00shcode/mytoolkit/block_pool.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "00shcode/mytoolkit/lock.h"

namespace {

// The address sanitizer is to see every block come and go.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kReuses = false;
#else
constexpr bool kReuses = true;
#endif

// In front of every block.
struct alignas(8) Block {
  Block* next;
  std::uint32_t size_class;
};

constexpr std::size_t kStep = 64;     // of small sizes
constexpr std::size_t kSmall = 1024;  // above it there are four sizes to a doubling
constexpr std::size_t kLargest = std::size_t{8} << 20;
constexpr std::size_t kMostIdle = std::size_t{4} << 20;  // bytes of one size that may wait
constexpr std::uint32_t kClasses = 17 + 4 * 13;
constexpr std::uint32_t kUnpooled = kClasses;

std::uint32_t ClassOf(std::size_t bytes) {
  if (bytes <= kSmall) return static_cast<std::uint32_t>((bytes + kStep - 1) / kStep);
  if (bytes > kLargest) return kUnpooled;
  std::uint32_t doublings = 0;
  while ((bytes - 1) >> doublings >= 2 * kSmall) ++doublings;
  const std::size_t quarter = (kSmall << doublings) / 4;
  return static_cast<std::uint32_t>(16 + 4 * doublings + (bytes + quarter - 1) / quarter - 4);
}

std::size_t SizeOf(std::uint32_t size_class) {
  if (size_class <= 16) return size_class * kStep;
  const std::uint32_t doublings = (size_class - 17) / 4;
  return (kSmall << doublings) / 4 * (5 + (size_class - 17) % 4);
}

void FreeAll(Block* block) {
  while (block != nullptr) std::free(std::exchange(block, block->next));
}

// The blocks of one size. Those that free push one block after the other; those that allocate take
// all of them at once, so that no block can come back while somebody looks at it.
class alignas(64) BlockStack {
 public:
  void PutBack(Block* block) {
    Block* top = m_freed.load(std::memory_order_relaxed);
    do {
      block->next = top;
    } while (!m_freed.compare_exchange_weak(top, block, std::memory_order_release,
                                            std::memory_order_relaxed));
  }

  // Null when there is none.
  Block* TakeOne(std::size_t bytes) {
    const CFTScopedLock guard(&m_lock);
    m_used = true;
    if (m_stock == nullptr) m_stock = TakeFreed(kMostIdle / bytes + 1);
    Block* const block = m_stock;
    if (block != nullptr) m_stock = block->next;
    return block;
  }

  void Empty(bool used_too) {
    Block* stock = nullptr;
    {
      const CFTScopedLock guard(&m_lock);
      if (std::exchange(m_used, false) && !used_too) return;
      stock = std::exchange(m_stock, nullptr);
    }
    FreeAll(stock);
    FreeAll(m_freed.exchange(nullptr, std::memory_order_acquire));
  }

 private:
  // What is too much goes back to the system.
  Block* TakeFreed(std::size_t most) {
    Block* const first = m_freed.exchange(nullptr, std::memory_order_acquire);
    Block* last = first;
    for (std::size_t i = 1; i < most && last != nullptr; ++i) last = last->next;
    if (last != nullptr) FreeAll(std::exchange(last->next, nullptr));
    return first;
  }

  std::atomic<Block*> m_freed{nullptr};
  alignas(64) CFTLock m_lock;
  Block* m_stock FT_GUARDED_BY(m_lock) = nullptr;
  bool m_used FT_GUARDED_BY(m_lock) = false;
};

// Never destroyed: bodies may come back after main.
BlockStack* Stacks() {
  static auto* const stacks = new BlockStack[kClasses];
  return stacks;
}

Block* NewBlock(std::size_t bytes, std::uint32_t size_class) {
  auto* const block = static_cast<Block*>(std::malloc(sizeof(Block) + bytes));
  if (block == nullptr) throw std::bad_alloc();
  block->size_class = size_class;
  return block;
}

void EmptyAll(bool used_too) {
  for (std::uint32_t size_class = 0; size_class < kClasses; ++size_class) {
    Stacks()[size_class].Empty(used_too);
  }
}

}  // namespace

void* ft::AllocBlock(std::size_t bytes) {
  const std::uint32_t size_class = kReuses ? ClassOf(bytes) : kUnpooled;
  if (size_class == kUnpooled) return NewBlock(bytes, size_class) + 1;
  const std::size_t size = SizeOf(size_class);
  Block* const block = Stacks()[size_class].TakeOne(size);
  return (block != nullptr ? block : NewBlock(size, size_class)) + 1;
}

void ft::FreeBlock(void* memory) noexcept {
  if (memory == nullptr) return;
  Block* const block = static_cast<Block*>(memory) - 1;
  if (block->size_class == kUnpooled) {
    std::free(block);
  } else {
    Stacks()[block->size_class].PutBack(block);
  }
}

void ft::FreeIdleBlocks() noexcept {
  EmptyAll(true);
}

void ft::FreeUnusedSizes() noexcept {
  EmptyAll(false);
}
