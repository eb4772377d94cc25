// Buffer, clocks and texts.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>

#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/text.h"
#include "tests/support/fast_clock.h"
#include "tests/support/run_on_threads.h"

using namespace testkit;

namespace {

constexpr int kLineFeed = 0x0A;

std::string Text(const CFTBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.GetData()),
                     static_cast<std::size_t>(buffer.GetDataLen()));
}

std::int32_t Append(CFTBuffer* buffer, const std::string& text) {
  return buffer->Append(text.data(), static_cast<std::int32_t>(text.size()));
}

// As a socket does: bytes straight into the free tail.
void Receive(CFTBuffer* buffer, const std::string& text) {
  ASSERT_LE(static_cast<std::int32_t>(text.size()), buffer->GetFreeTail());
  std::memcpy(buffer->GetWritePos(), text.data(), text.size());
  buffer->CommitWrite(static_cast<std::int32_t>(text.size()));
}

void ExpectState(const CFTBuffer& buffer, const std::string& text, std::uint32_t capacity,
                 int terminator) {
  EXPECT_EQ(Text(buffer), text);
  EXPECT_EQ(buffer.GetCapacity(), capacity);
  EXPECT_EQ(*buffer.GetWritePos(), terminator);
  EXPECT_EQ(buffer.IsValid(), 1);
}

}  // namespace

TEST(Buffer, TakesTheCapacityAskedForAndATerminator) {
  ExpectState(CFTBuffer(), "", 31, 0);
  for (const std::uint32_t capacity : {0U, 2048U}) {
    CFTBuffer buffer(capacity);
    ExpectState(buffer, "", capacity, 0);
    Receive(&buffer, std::string(capacity, 'x'));
    ExpectState(buffer, std::string(capacity, 'x'), capacity, kLineFeed);
  }
}

// Each case starts with ten received bytes that fill the block.
TEST(Buffer, ReclaimsBeforeItGrowsAndGrowsByThirtyOneMore) {
  struct {
    const char* what;
    std::uint32_t consumed;
    std::function<void(CFTBuffer*)> act;
    std::string text;
    std::uint32_t capacity;
    int terminator;
  } const cases[] = {
      {"compact", 6, [](auto* b) { b->Compact(); }, "6789", 10, 0},
      {"reset", 3, [](auto* b) { b->Reset(); }, "", 10, 0},
      {"append what fits", 3, [](auto* b) { Append(b, "abc"); }, "3456789abc", 10, 0},
      {"append more", 3, [](auto* b) { Append(b, "abcd"); }, "3456789abcd", 7 + 4 + 31, 0},
      {"reserve what fits", 6, [](auto* b) { b->Reserve(6); }, "6789", 10, 0},
      {"reserve more", 6, [](auto* b) { b->Reserve(7); }, "6789", 4 + 7 + 31, 0},
      {"grow", 6, [](auto* b) { b->Grow(5); }, "6789", 4 + 5 + 31, 0},
      {"release twice, use again", 6, [](auto* b) { b->Release(), b->Release(), Append(b, "abc"); },
       "abc", 3 + 31, 0},
      {"append nothing", 6, [](auto* b) { b->Append(nullptr, 0); }, "6789", 10, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CFTBuffer buffer(10);
    Receive(&buffer, "0123456789");
    buffer.Consume(c.consumed);
    c.act(&buffer);
    ExpectState(buffer, c.text, c.capacity, c.terminator);
  }
}

TEST(Buffer, RefusesInvalidPositionsAndNegativeLengths) {
  CFTBuffer read_behind_write, write_behind_capacity(4);
  EXPECT_EQ(CFTBuffer().Append("x", -1), -1);
  read_behind_write.Consume(1);
  write_behind_capacity.CommitWrite(5);
  for (CFTBuffer* const buffer : {&read_behind_write, &write_behind_capacity}) {
    EXPECT_EQ(buffer->IsValid(), 0);
    EXPECT_EQ(buffer->Compact(), -1);
    EXPECT_EQ(buffer->Append("x", 1), -1);
  }
}

TEST(Buffer, AReleasedOneTakesEveryCallAsAnEmptyOne) {
  CFTBuffer buffer;
  buffer.Release();
  buffer.Reset();
  EXPECT_EQ(buffer.Compact(), 0);
  EXPECT_EQ(buffer.Append(nullptr, 0), 0);
  buffer.CommitWrite(0);
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetDataLen() + buffer.GetFreeTail(), 0);
  EXPECT_EQ(Append(&buffer, "abc"), 0);
  ExpectState(buffer, "abc", 3 + 31, 0);
}

TEST(Time, ComparesAndSubtractsModuloTheTickPeriod) {
  struct {
    FTTime a, b;
    bool less;
    std::int32_t difference;  // a - b in milliseconds
  } const cases[] = {
      {{-2, 999}, {-1, 0}, true, -1},
      {{9, 995}, {10, 5}, true, -10},
      {{4294967, 296}, {4294967, 1295}, true, -999},
      {{0x100000001LL, 0}, {0xFFFFFFFFLL, 0}, false, 2000},
      {{2147483, 647}, {0, 0}, false, std::numeric_limits<std::int32_t>::max()},
      {{2147483, 648}, {0, 0}, false, std::numeric_limits<std::int32_t>::min()},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.a < c.b, c.less) << c.difference;
    EXPECT_EQ(ft::DiffMs(c.a, c.b), c.difference);
  }
}

TEST(TickClock, SplitsTheCounterAndGoesOnBehindItsWrap) {
  struct {
    std::uint32_t counter;
    FTTime reading;
  } const readings[] = {
      {4294966295U, {4294966, 295}}, {4294966295U, {4294966, 295}}, {0xFFFFFFFFU, {4294967, 295}},
      {999, {4294967, 1295}},        {0xFFFFFFFFU, {8589934, 591}}, {5, {8589934, 597}},
  };
  CFTTickUnwrapper clock;
  for (const auto& r : readings) EXPECT_TRUE(clock.Read(r.counter) == r.reading) << r.counter;
}

// A reading that overtakes another between counter and clock would look like a wrap, 49 days on.
TEST(TickClock, NeverJumpsWhenSeveralThreadsRead) {
  const FastClock fast(1000);
  const FTTime start = ft::GetTickTime();
  RunOnThreads(4, [&](int) {
    FTTime last = start;
    for (int round = 0; round < 20000; ++round) {
      const FTTime now = ft::GetTickTime();
      ASSERT_FALSE(now < last);
      last = now;
    }
    EXPECT_LT(last.seconds - start.seconds, 4294967);
  });
}

// Long texts are formatted twice, with the same arguments.
TEST(FormatString, ReturnsTheWholeTextOfAnyLength) {
  for (const std::size_t length : {15U, 1023U, 1024U, 1025U, 1026U, 3072U, 100000U}) {
    const std::string text(length - 15, 'x');
    EXPECT_EQ(ft::FormatString("%s%d%lld", text.c_str(), -7, 1LL << 40), text + "-71099511627776");
  }
  EXPECT_EQ(ft::FormatString("a%cb", 0), std::string("a\0b", 3));
}

TEST(BytesToHex, WritesTwoDigitsAByte) {
  const unsigned char bytes[] = {0x0A, 0xFF, 0x00, 0x9C};
  EXPECT_EQ(ft::BytesToHex(bytes, 2, 1), "0aff");
  EXPECT_EQ(ft::BytesToHex(bytes, 4, 0), "0AFF009C");
}
