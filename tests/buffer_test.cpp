#include "00shcode/mytoolkit/buffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

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
