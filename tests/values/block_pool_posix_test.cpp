// What the pool of blocks gives back, which only a heap that tells its size can show.
#include <gtest/gtest.h>
#include <malloc.h>

#include <vector>

#include "00shcode/mytoolkit/block_pool.h"

namespace {

constexpr std::size_t kSize = 5000;
constexpr std::size_t kMiB = std::size_t{1} << 20;

std::size_t HeldMiB() {
  return mallinfo2().uordblks / kMiB;
}

std::vector<void*> Alloc(std::size_t megabytes) {
  std::vector<void*> blocks(megabytes * kMiB / kSize);
  for (void*& block : blocks) block = ft::AllocBlock(kSize);
  return blocks;
}

void Free(const std::vector<void*>& blocks) {
  for (void* const block : blocks) ft::FreeBlock(block);
}

// A burst comes back while some of an earlier one are still there to be taken.
TEST(BlockPool, TidyingLeaves4MiBOfASizeInUseAndNothingOfOneThatIsNot) {
  const std::size_t before = HeldMiB();
  const auto burst = Alloc(60);
  if (HeldMiB() == before) GTEST_SKIP() << "another heap is in use";
  const auto earlier = Alloc(10);
  Free(earlier);
  Free(Alloc(1));
  Free(burst);
  EXPECT_GE(HeldMiB(), before + 60);
  ft::TidyIdleBlocks();
  EXPECT_LE(HeldMiB(), before + 6);
  EXPECT_GE(HeldMiB(), before + 3);
  ft::TidyIdleBlocks();
  EXPECT_LE(HeldMiB(), before + 1);
}

}  // namespace
