#include "client/package.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "client/check_sum.h"
#include "tests/support/wire.h"

namespace {

using namespace testkit;

constexpr std::uint32_t kLongestBody = 0x7FFFFFF3;  // 2^31 - 13
constexpr std::uint32_t kTooLong[] = {kLongestBody + 1, 0x7FFFFFFF, 0x80000000,
                                      0xFFFFFFF3,       0xFFFFFFF4, 0xFFFFFFFF};

Bytes Content(const CFTBuffer& buffer) {
  return Bytes(reinterpret_cast<const char*>(buffer.GetData()),
               static_cast<std::size_t>(buffer.GetDataLen()));
}

// The body; nothing when the package is refused. All bytes lie in blocks of exactly their size, so
// that a read behind them is seen.
std::optional<Bytes> Decode(const Bytes& bytes) {
  CFTBuffer buffer(static_cast<std::uint32_t>(bytes.size()));
  buffer.Append(bytes.data(), static_cast<std::int32_t>(bytes.size()));
  PkgHead head;
  char* body = nullptr;
  std::int32_t length = 0;
  const std::int32_t result = ft::DecodePkg(&buffer, &head, &body, &length);
  const std::unique_ptr<char[]> owned(body);
  EXPECT_EQ(result, body == nullptr ? -1 : 0);
  if (body == nullptr) return std::nullopt;
  return Bytes(body, static_cast<std::size_t>(length));
}

std::int32_t LengthOf(const Bytes& bytes) {
  const auto block = std::make_unique<char[]>(bytes.size());
  bytes.copy(block.get(), bytes.size());
  return ft::GetPkgLen(block.get(), static_cast<std::int32_t>(bytes.size()));
}

TEST(Package, HasItsBytesInWireOrder) {
  EXPECT_EQ(HexDump(BuildPackage("abc")), "01 00 00 00 00 00 00 03 9E 9D 9C FF 61 62 63");
  EXPECT_EQ(HexDump(BuildHeader(0x01020304, "abcd", 5)), "05 00 00 00 01 02 03 04 61 62 63 64");
  CFTBuffer buffer;
  Bytes expected;
  for (const Bytes& body : {Bytes("abc"), Bytes(), PatternBody(256), PatternBody(100003)}) {
    ASSERT_EQ(ft::EncodePkg(&buffer, body.data(), static_cast<std::int32_t>(body.size())), 0);
    expected += BuildPackage(body);
  }
  for (const std::int32_t length : {-1, INT32_MIN, INT32_MAX, INT32_MAX - 11}) {
    EXPECT_EQ(ft::EncodePkg(&buffer, "x", length), -1) << length;
  }
  EXPECT_EQ(ft::EncodePkg(&buffer, nullptr, 0), -1);
  EXPECT_TRUE(Content(buffer) == expected);
}

TEST(Package, IsDecodedWhateverItsMarkAndWhateverFollows) {
  for (const std::uint32_t mark : {0U, 1U, 0xFFFFFFFFU}) {
    for (const Bytes& body : {Bytes(), Bytes(5, '\0'), PatternBody(4000)}) {
      const Bytes head = BuildHeader(static_cast<std::uint32_t>(body.size()), CheckSum(body), mark);
      EXPECT_TRUE(Decode(head + body + "more") == body) << body.size() << " bytes, mark " << mark;
    }
  }
}

TEST(Package, IsRefusedWhenItIsCutOrDamaged) {
  // The zeros are what a reader finds by chance behind a package that was cut.
  const Bytes package = BuildPackage(PatternBody(60) + Bytes(40, '\0'));
  for (std::size_t size = 0; size < package.size(); ++size) {
    EXPECT_FALSE(Decode(package.substr(0, size))) << size << " bytes";
  }
  for (std::size_t bit = 4 * 8; bit < 33 * 8; ++bit) {
    Bytes damaged = BuildPackage(PatternBody(21));
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
    EXPECT_FALSE(Decode(damaged)) << "bit " << bit;
  }
  for (const std::uint32_t length : kTooLong) {
    EXPECT_FALSE(Decode(BuildHeader(length, CheckSum("")))) << length;
  }
}

TEST(Package, HasItsLengthInTheFirstTwelveBytes) {
  for (std::size_t count = 0; count <= 15; ++count) {
    EXPECT_EQ(LengthOf(BuildPackage("abc").substr(0, count)), count < 12 ? 0 : 15) << count;
  }
  EXPECT_EQ(LengthOf(BuildHeader(kLongestBody, "sum?")), INT32_MAX);
  for (const std::uint32_t length : kTooLong) {
    EXPECT_LT(LengthOf(BuildHeader(length, "sum?")), 0) << length;
  }
}

TEST(Package, IsAHeartbeatByTheThreeBytesThatItsBodyBeginsWith) {
  EXPECT_EQ(Content(*ft::MakeHeartbeatPkg()), BuildPackage(Bytes("HB\0", 3)));
  const std::pair<Bytes, bool> cases[] = {
      {Bytes("HB\0", 3), true}, {Bytes("HB\0tail", 7), true}, {"", false}, {"HB", false},
      {"HBx", false},           {Bytes("hb\0", 3), false}};
  for (const auto& [body, expected] : cases) {
    const auto length = static_cast<std::int32_t>(body.size());
    EXPECT_EQ(ft::IsHeartbeatBody(body.data(), length), expected) << HexDump(body);
  }
}

using Words = std::vector<std::uint32_t>;

// Bring a sum of 0 to exactly 2^32 - 1, the last one that is not folded.
const Words kToTheBorder = {0x7FFFFFFF, 0x7FFFFFFF, 1};

// From an odd address to the very end of a block, so that a read behind the data is seen.
Bytes CheckSumOf(const Bytes& data) {
  const auto block = std::make_unique<char[]>(1 + data.size());
  data.copy(block.get() + 1, data.size());
  unsigned char check_sum[4];
  ft::CalcCheckSum(check_sum, block.get() + 1, static_cast<std::int32_t>(data.size()));
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
  const char* const cases[][2] = {
      {"48 42 00", "B7 BD FF FF"},
      {"", "FF FF FF FF"},
      {"FF FF FF FF FF FF FF FF", "00 00 00 01"},              // stays negative
      {"80 00 00 00 7F FF FF FF 7F FF FF FF", "80 00 00 01"},  // negative, then positive
      {"7F FF FF FF 7F FF FF FF 00 00 00 01", "00 00 00 00"},  // just not folded
      {"7F FF FF FF 7F FF FF FF 00 00 00 02", "FF FF FF FE"},  // just folded
      {"00 00 00 00 FF", "00 FF FF FF"},                       // a short group is signed too
      {"7F FF FF FF 7F FF FF FF 7F FF FF FF FF", "81 00 00 01"},
  };
  for (const auto& [data, check_sum] : cases) {
    EXPECT_EQ(HexDump(CheckSumOf(FromHex(data))), check_sum) << data;
    EXPECT_EQ(HexDump(CheckSum(FromHex(data))), check_sum) << "by the kit: " << data;
  }
}

// The library sums blocks of words at once where their order cannot matter, the kit word by word.
// Sums that stay at a border or cross it again and again, wherever a block may begin.
TEST(CheckSum, RunsOfWordsThatCrossTheBorders) {
  const Words patterns[] = {{0x7FFFFFFF}, {0x80000000}, {0xFFFFFFFF}, {0}, {1}, kToTheBorder};
  for (std::uint32_t seed = 1; seed <= 2000; ++seed) {
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
