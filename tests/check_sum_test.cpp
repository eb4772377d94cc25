// The library sums blocks of words at once where the order of the words cannot matter; the kit's
// own sum, which it is held to here, goes word by word.
#include "client/check_sum.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/wire.h"

namespace {

using namespace testkit;
using Words = std::vector<std::uint32_t>;

// Bring a sum of 0 to exactly 2^32 - 1, the last one that is not folded.
const Words kToTheBorder = {0x7FFFFFFF, 0x7FFFFFFF, 1};

// From an odd address to the very end of a block, so that a read behind the data is seen.
Bytes CheckSumOf(const Bytes& data) {
  const auto block = std::make_unique<char[]>(1 + data.size());
  data.copy(block.get() + 1, data.size());
  unsigned char check_sum[4];
  CalcCheckSum(check_sum, block.get() + 1, static_cast<std::int32_t>(data.size()));
  return Bytes(reinterpret_cast<const char*>(check_sum), sizeof check_sum);
}

Bytes Join(const Words& words) {
  Bytes data;
  for (const std::uint32_t word : words) {
    for (int shift = 24; shift >= 0; shift -= 8) data += static_cast<char>(word >> shift & 0xFF);
  }
  return data;
}

TEST(CheckSum, WorkedValuesOfTheLibraryAndOfTheKit) {
  const struct {
    const char* data;
    const char* check_sum;
  } cases[] = {
      {"48 42 00", "B7 BD FF FF"},
      {"61 62 63", "9E 9D 9C FF"},
      {"", "FF FF FF FF"},
      {"80 00 00 00", "7F FF FF FF"},
      {"FF FF FF FF FF FF FF FF", "00 00 00 01"},              // stays negative
      {"80 00 00 00 7F FF FF FF 7F FF FF FF", "80 00 00 01"},  // negative, then positive
      {"7F FF FF FF 7F FF FF FF 00 00 00 01", "00 00 00 00"},  // just not folded
      {"7F FF FF FF 7F FF FF FF 00 00 00 02", "FF FF FF FE"},  // just folded
      {"00 00 00 00 FF", "00 FF FF FF"},                       // a short group is signed too
      {"7F FF FF FF 7F FF FF FF 7F FF FF FF FF", "81 00 00 01"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(HexDump(CheckSumOf(FromHex(c.data))), c.check_sum) << c.data;
    EXPECT_EQ(HexDump(CheckSum(FromHex(c.data))), c.check_sum) << "by the kit: " << c.data;
  }
}

// Text has no negative words: its sum only rises and is folded every few words.
TEST(CheckSum, RandomBytesAndTextOfAllLengths) {
  Words lengths = {1023, 1024, 1025, 4099, 65536, 1000003};
  for (std::uint32_t length = 0; length <= 600; ++length) lengths.push_back(length);
  for (const std::uint32_t length : lengths) {
    Bytes data = PatternBody(length, length + 1);
    EXPECT_EQ(HexDump(CheckSumOf(data)), HexDump(CheckSum(data))) << length << " bytes";
    for (char& c : data) c = static_cast<char>(c & 0x7F);
    EXPECT_EQ(HexDump(CheckSumOf(data)), HexDump(CheckSum(data))) << length << " letters";
  }
}

// Sums that stay at a border or cross it again and again, wherever a block may begin.
TEST(CheckSum, RunsOfWordsThatCrossTheBorders) {
  const Words patterns[] = {{0x7FFFFFFF}, {0x80000000}, {0xFFFFFFFF}, {0}, {1}, kToTheBorder};
  for (std::uint32_t seed = 1; seed <= 1500; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](std::uint32_t limit) {
      return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
    };
    const std::uint32_t longest_run = 1 + below(seed % 100 == 0 ? 50000 : 120);
    Words words;
    while (words.size() < 400) {
      const Words& pattern = patterns[below(6)];
      for (std::uint32_t run = 1 + below(longest_run); run > 0; --run) {
        words.insert(words.end(), pattern.begin(), pattern.end());
      }
    }
    Bytes data = Join(words);
    data.resize(data.size() - below(260));
    ASSERT_EQ(HexDump(CheckSumOf(data)), HexDump(CheckSum(data))) << "seed " << seed;
  }
}

}  // namespace
