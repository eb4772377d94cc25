// Buffer, clocks and texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "00shcode/mytoolkit/block_pool.h"
#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/text.h"
#include "tests/support/clock.h"
#include "tests/support/threads.h"

using namespace testkit;

namespace {

void ExpectState(const CFTBuffer& buffer, const std::string& text, std::uint32_t capacity,
                 int terminator = 0) {
  const auto* const data = reinterpret_cast<const char*>(buffer.GetData());
  EXPECT_EQ(std::string(data, static_cast<std::size_t>(buffer.GetDataLen())), text);
  EXPECT_EQ(buffer.GetCapacity(), capacity);
  EXPECT_EQ(*buffer.GetWritePos(), terminator);
}

// Each case starts with ten received bytes that fill the block, of which six are consumed.
TEST(Buffer, ReclaimsBeforeItGrowsAndGrowsByThirtyOneMore) {
  const std::tuple<const char*, void (*)(CFTBuffer*), std::string, std::uint32_t> cases[] = {
      {"compact", [](CFTBuffer* b) { b->Compact(); }, "6789", 10},
      {"reset", [](CFTBuffer* b) { b->Reset(); }, "", 10},
      {"append what fits", [](CFTBuffer* b) { b->Append("abcdef", 6); }, "6789abcdef", 10},
      {"append more", [](CFTBuffer* b) { b->Append("abcdefg", 7); }, "6789abcdefg", 4 + 7 + 31},
      {"grow", [](CFTBuffer* b) { b->Grow(5); }, "6789", 4 + 5 + 31},
      {"release",
       [](CFTBuffer* b) {
         b->Release(), b->Release(), b->Reset(), b->CommitWrite(0), b->Compact(),
             b->Append(nullptr, 0), b->Append("abc", 3);
       },
       "abc", 3 + 31},
  };
  ExpectState(CFTBuffer(), "", 31);
  for (const auto& [what, act, text, capacity] : cases) {
    SCOPED_TRACE(what);
    CFTBuffer buffer(10);
    ASSERT_EQ(buffer.GetFreeTail(), 10);
    std::memcpy(buffer.GetWritePos(), "0123456789", 10);
    buffer.CommitWrite(10);
    ExpectState(buffer, "0123456789", 10, '\n');
    buffer.Consume(6);
    act(&buffer);
    ExpectState(buffer, text, capacity);
  }
}

TEST(Buffer, RefusesInvalidPositionsAndNegativeLengths) {
  CFTBuffer read_behind_write, write_behind_capacity(4);
  EXPECT_EQ(CFTBuffer().Append("x", -1), -1);
  read_behind_write.Consume(1);
  write_behind_capacity.CommitWrite(5);
  EXPECT_EQ(read_behind_write.Append("x", 1), -1);
  EXPECT_EQ(write_behind_capacity.Compact(), -1);
}

// Of every size that the pool has and their neighbours; used again, and given back at the end.
TEST(BlockPool, BlocksOfAnySizeAreAlignedAndNobodyElses) {
  for (int round = 0; round < 2; ++round) {
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
    for (std::size_t size = 1; size < 20000000; size += size < 2000 ? 1 : size / 3) {
      auto* const block = static_cast<unsigned char*>(ft::AllocBlock(size));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 8, 0U) << size;
      std::fill_n(block, size, static_cast<unsigned char>(size));
      blocks.emplace_back(block, size);
    }
    for (const auto& [block, size] : blocks) {
      const auto expected = static_cast<unsigned char>(size);
      ASSERT_EQ(std::count(block, block + size, expected), static_cast<std::ptrdiff_t>(size));
      ft::FreeBlock(block);
    }
  }
  ft::FreeIdleBlocks();
}

TEST(Buffer, BecomesABodyWithoutItsHeader) {
  for (const bool in_place : {true, false}) {
    FTBufferPtr buffer = CFTBuffer::Make(17);
    if (!in_place) buffer->Reserve(100);
    buffer->Append("twelve bytesbody", 17);
    const void* const data = buffer->GetData() + 12;
    const ft::FTBodyPtr body(CFTBuffer::IntoBody(std::move(buffer), 12));
    EXPECT_STREQ(body.get(), "body");
    EXPECT_EQ(body.get() == data, in_place);
  }
}

TEST(Time, ComparesAndSubtractsModuloTheTickPeriod) {
  const std::tuple<FTTime, FTTime, bool, std::int32_t> cases[] = {
      {{-2, 999}, {-1, 0}, true, -1},
      {{4294967, 296}, {4294967, 1295}, true, -999},
      {{0x100000001LL, 0}, {0xFFFFFFFFLL, 0}, false, 2000},
      {{2147483, 647}, {0, 0}, false, INT32_MAX},
      {{2147483, 648}, {0, 0}, false, INT32_MIN},
  };
  for (const auto& [a, b, less, milliseconds] : cases) {
    EXPECT_EQ(a < b, less) << milliseconds;
    EXPECT_EQ(ft::DiffMs(a, b), milliseconds);
  }
}

TEST(TickClock, SplitsTheCounterAndGoesOnBehindItsWrap) {
  const std::pair<std::uint32_t, FTTime> readings[] = {{4294966295U, {4294966, 295}},
                                                       {0xFFFFFFFFU, {4294967, 295}},
                                                       {999, {4294967, 1295}},
                                                       {0xFFFFFFFFU, {8589934, 591}},
                                                       {5, {8589934, 597}}};
  CFTTickUnwrapper clock;
  for (const auto& [counter, time] : readings) EXPECT_TRUE(clock.Read(counter) == time) << counter;
}

// A reading that overtakes another between counter and clock would look like a wrap, 49 days on.
TEST(TickClock, NeverJumpsWhenSeveralThreadsRead) {
  const FastClock fast(1000);
  const FTTime start = ft::GetTickTime();
  RunOnThreads(4, [](int) {
    for (int i = 0; i < 20000; ++i) ft::GetTickTime();
  });
  EXPECT_LT(ft::GetTickTime().seconds - start.seconds, 4294967);
}

// Long texts are formatted twice, with the same arguments.
TEST(Text, IsFormattedAtAnyLengthAndInHex) {
  for (const std::size_t length : {15U, 1024U, 1025U, 1026U, 100000U}) {
    const std::string text(length - 15, 'x');
    EXPECT_EQ(ft::FormatString("%s%d%lld", text.c_str(), -7, 1LL << 40), text + "-71099511627776");
  }
  EXPECT_EQ(ft::FormatString("a%cb", 0), std::string("a\0b", 3));
  EXPECT_EQ(ft::BytesToHex("\x0A\xFF", 2, 1), "0aff");
}

}  // namespace
