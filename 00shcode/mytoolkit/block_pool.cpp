#include "00shcode/mytoolkit/block_pool.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "platform/platform.h"

namespace {

// The address sanitizer is to see every block come and go; each compiler tells of it in its own
// way.
#if defined(__has_feature)
#define FT_HAS_FEATURE(feature) __has_feature(feature)
#else
#define FT_HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || FT_HAS_FEATURE(address_sanitizer)
constexpr bool kReuses = false;
#else
constexpr bool kReuses = true;
#endif

// A block and what stands in front of it. The link lies in the block's own memory.
struct alignas(8) Block {
  std::uint32_t size_class;
  std::uint32_t counted;  // bytes in g_counted
  alignas(8) Block* next;
};

constexpr std::size_t kFront = offsetof(Block, next);
constexpr std::size_t kStep = 16;     // of small sizes
constexpr std::size_t kSmall = 1024;  // above it there are four sizes to a doubling
constexpr std::size_t kLargest = std::size_t{8} << 20;
constexpr std::size_t kMostIdle = std::size_t{4} << 20;  // bytes of one size that may wait
constexpr std::uint32_t kSmallClasses = kSmall / kStep;
constexpr std::uint32_t kClasses = 1 + kSmallClasses + 4 * 13;
constexpr std::uint32_t kUnpooled = kClasses;

std::uint32_t ClassOf(std::size_t bytes) {
  if (bytes <= kSmall) return static_cast<std::uint32_t>((bytes + kStep - 1) / kStep);
  if (bytes > kLargest) return kUnpooled;
  std::uint32_t doublings = 0;
  while ((bytes - 1) >> doublings >= 2 * kSmall) ++doublings;
  const std::size_t quarter = (kSmall << doublings) / 4;
  return static_cast<std::uint32_t>(kSmallClasses + 4 * doublings +
                                    (bytes + quarter - 1) / quarter - 4);
}

std::size_t SizeOf(std::uint32_t size_class) {
  if (size_class <= kSmallClasses) return size_class * kStep;
  const std::uint32_t above = size_class - kSmallClasses - 1;
  return (kSmall << above / 4) / 4 * (5 + above % 4);
}

// Another core wrote the block last, and small ones lie in two lines of the cache. Null does no
// harm: only numbers are added.
void Prefetch(const Block* block) {
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  __builtin_prefetch(block, 1);
  __builtin_prefetch(reinterpret_cast<const void*>(address + 64), 1);
}

// A plain count: nothing else depends on its order.
std::atomic<std::size_t> g_counted{0};

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

  // Null when there is none, or when somebody else is just taking one: the heap is faster than to
  // wait.
  Block* TakeOne() {
    if (m_busy.exchange(true, std::memory_order_acquire)) return nullptr;
    m_used = true;
    if (m_stock == nullptr) m_stock = m_freed.exchange(nullptr, std::memory_order_acquire);
    Block* const block = m_stock;
    if (block != nullptr) {
      m_stock = block->next;
      Prefetch(m_stock);
    }
    Leave();
    return block;
  }

  // Gives back what is more than so many blocks, or all when none was taken since the last call.
  void Tidy(std::size_t most) {
    Enter();
    const bool used = std::exchange(m_used, false);
    Block* freed = used ? m_freed.exchange(nullptr, std::memory_order_acquire) : nullptr;
    Block* const surplus = used ? CutStock(most, &freed) : nullptr;
    Leave();
    FreeAll(surplus);
    FreeAll(freed);
    if (!used) Empty();
  }

  void Empty() {
    Enter();
    Block* const stock = std::exchange(m_stock, nullptr);
    Leave();
    FreeAll(stock);
    FreeAll(m_freed.exchange(nullptr, std::memory_order_acquire));
  }

 private:
  void Enter() {
    while (m_busy.exchange(true, std::memory_order_acquire)) platform::YieldThread();
  }
  void Leave() { m_busy.store(false, std::memory_order_release); }

  // What is behind the first so many. A stock that has fewer takes the other list in.
  Block* CutStock(std::size_t most, Block** other) {
    Block** end = &m_stock;
    for (; most > 0; --most) {
      if (*end == nullptr) *end = std::exchange(*other, nullptr);
      if (*end == nullptr) return nullptr;
      end = &(*end)->next;
    }
    return std::exchange(*end, nullptr);
  }

  std::atomic<Block*> m_freed{nullptr};
  // Whoever sets it has what follows to itself, for a few instructions.
  alignas(64) std::atomic<bool> m_busy{false};
  Block* m_stock = nullptr;
  bool m_used = false;
};

// Never destroyed: bodies may come back after main.
BlockStack* Stacks() {
  static auto* const stacks = new BlockStack[kClasses];
  return stacks;
}

Block* NewBlock(std::size_t bytes, std::uint32_t size_class) {
  auto* const block = static_cast<Block*>(std::malloc(kFront + std::max(bytes, sizeof(Block*))));
  if (block == nullptr) throw std::bad_alloc();
  block->size_class = size_class;
  return block;
}

Block* TakeBlock(std::size_t bytes) {
  const std::uint32_t size_class = kReuses ? ClassOf(bytes) : kUnpooled;
  if (size_class == kUnpooled) return NewBlock(bytes, size_class);
  Block* const block = Stacks()[size_class].TakeOne();
  return block != nullptr ? block : NewBlock(SizeOf(size_class), size_class);
}

Block* BlockOf(void* memory) {
  return reinterpret_cast<Block*>(static_cast<char*>(memory) - kFront);
}

}  // namespace

void* ft::AllocBlock(std::size_t bytes) {
  Block* const block = TakeBlock(bytes);
  block->counted = 0;
  return &block->next;
}

void ft::FreeBlock(void* memory) noexcept {
  if (memory == nullptr) return;
  Block* const block = BlockOf(memory);
  if (block->counted != 0) g_counted.fetch_sub(block->counted, std::memory_order_relaxed);
  if (block->size_class == kUnpooled) {
    std::free(block);
  } else {
    Stacks()[block->size_class].PutBack(block);
  }
}

void ft::CountBlock(void* memory, std::uint32_t bytes) noexcept {
  BlockOf(memory)->counted = bytes;
  g_counted.fetch_add(bytes, std::memory_order_relaxed);
}

std::size_t ft::CountedBytes() noexcept {
  return g_counted.load(std::memory_order_relaxed);
}

void ft::FreeIdleBlocks() noexcept {
  for (std::uint32_t size_class = 0; size_class < kClasses; ++size_class) {
    Stacks()[size_class].Empty();
  }
}

void ft::TidyIdleBlocks() noexcept {
  for (std::uint32_t size_class = 0; size_class < kClasses; ++size_class) {
    Stacks()[size_class].Tidy(kMostIdle / (kFront + SizeOf(size_class)) + 1);
  }
}
