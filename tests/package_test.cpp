#include "client/package.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "tests/support/wire.h"

namespace {

using namespace testkit;

constexpr std::uint32_t kLongestBody = 0x7FFFFFF3;  // 2^31 - 13

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
  const std::int32_t result = DecodePkg(&buffer, &head, &body, &length);
  const std::unique_ptr<char[]> owned(body);
  EXPECT_EQ(result, body == nullptr ? -1 : 0);
  if (body == nullptr) return std::nullopt;
  return Bytes(body, static_cast<std::size_t>(length));
}

std::int32_t LengthOf(const Bytes& bytes) {
  const auto block = std::make_unique<char[]>(bytes.size());
  bytes.copy(block.get(), bytes.size());
  return GetPkgLen(block.get(), static_cast<std::int32_t>(bytes.size()));
}

TEST(Package, HasItsBytesInWireOrder) {
  EXPECT_EQ(HexDump(BuildPackage("abc")), "01 00 00 00 00 00 00 03 9E 9D 9C FF 61 62 63");
  EXPECT_EQ(HexDump(BuildPackage("")), "01 00 00 00 00 00 00 00 FF FF FF FF");
  EXPECT_EQ(HexDump(BuildHeader(0x01020304, "abcd", 5)), "05 00 00 00 01 02 03 04 61 62 63 64");
  CFTBuffer buffer;
  Bytes expected;
  for (const Bytes& body : {Bytes("abc"), Bytes(), PatternBody(256), PatternBody(100003)}) {
    ASSERT_EQ(EncodePkg(&buffer, body.data(), static_cast<std::int32_t>(body.size())), 0);
    expected += BuildPackage(body);
  }
  for (const std::int32_t length : {-1, INT32_MIN, INT32_MAX, INT32_MAX - 11}) {
    EXPECT_EQ(EncodePkg(&buffer, "x", length), -1) << length;
  }
  EXPECT_EQ(EncodePkg(&buffer, nullptr, 0), -1);
  EXPECT_TRUE(Content(buffer) == expected);
}

TEST(Package, IsDecodedWhateverItsMarkAndWhateverFollows) {
  for (const std::uint32_t mark : {0U, 1U, 0x01000000U, 0xFFFFFFFFU}) {
    for (const Bytes& body : {Bytes(), Bytes("a"), Bytes(5, '\0'), PatternBody(4000)}) {
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
  const Bytes whole = BuildPackage(PatternBody(21));
  EXPECT_TRUE(ParsePackage(whole)->check_sum_matches);
  for (std::size_t bit = 4 * 8; bit < whole.size() * 8; ++bit) {
    Bytes damaged = whole;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
    EXPECT_FALSE(Decode(damaged)) << "bit " << bit;
    const auto parsed = ParsePackage(damaged);
    EXPECT_FALSE(parsed && parsed->check_sum_matches) << "by the kit: bit " << bit;
  }
  for (const std::uint32_t announced :
       {1U, 1000000U, kLongestBody, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(Decode(BuildHeader(announced, CheckSum("")))) << announced;
  }
}

TEST(Package, HasItsLengthInTheFirstTwelveBytes) {
  for (std::size_t count = 0; count <= 15; ++count) {
    EXPECT_EQ(LengthOf(BuildPackage("abc").substr(0, count)), count < 12 ? 0 : 15) << count;
  }
  EXPECT_EQ(LengthOf(BuildHeader(kLongestBody, "sum?")), INT32_MAX);
  for (const std::uint32_t too_long :
       {kLongestBody + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF3U, 0xFFFFFFF4U, 0xFFFFFFFFU}) {
    EXPECT_LT(LengthOf(BuildHeader(too_long, "sum?")), 0) << std::hex << too_long;
  }
}

TEST(Package, IsAHeartbeatByTheThreeBytesThatItsBodyBeginsWith) {
  EXPECT_EQ(Content(*MakeHeartbeatPkg()), BuildPackage(Bytes("HB\0", 3)));
  const std::pair<Bytes, bool> cases[] = {
      {Bytes("HB\0", 3), true}, {Bytes("HB\0tail", 7), true}, {"", false}, {"HB", false},
      {"HBx", false},           {Bytes("hb\0", 3), false}};
  for (const auto& [body, expected] : cases) {
    const auto length = static_cast<std::int32_t>(body.size());
    EXPECT_EQ(IsHeartbeatBody(body.data(), length), expected) << HexDump(body);
    EXPECT_EQ(IsHeartbeat(body), expected) << "by the kit: " << HexDump(body);
  }
}

}  // namespace
