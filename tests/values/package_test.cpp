// What the fuzz targets take for granted or cannot say in packages of the wire format.
#include <gtest/gtest.h>

#include "tests/support/cutter_feed.h"

namespace {

using namespace testkit;
using Result = CFTPkgCutter::Result;

TEST(CheckSum, WorkedValuesOfTheKit) {
  const Bytes largest = BigEndian(0x7FFFFFFF), smallest = BigEndian(0x80000000);
  const std::pair<Bytes, std::uint32_t> cases[] = {
      {Bytes("HB\0", 3), 0xB7BDFFFF},
      {Bytes(8, '\xFF'), 1},                                // stays negative
      {smallest + largest + largest, 0x80000001},           // negative, then positive
      {largest + largest + BigEndian(1), 0},                // just not folded
      {largest + largest + BigEndian(2), 0xFFFFFFFE},       // just folded
      {largest + largest + largest + '\xFF', 0x81000001}};  // a short group is signed too
  for (const auto& [data, check_sum] : cases) EXPECT_EQ(CheckSum(data), BigEndian(check_sum));
}

// The length stands in the first byte, in tens. No more than a regular buffer holds was shown.
TEST(PkgCutter, TheRuleSeesWhatARegularBufferHolds) {
  CutterFeed tens{CFTPkgCutter([](const unsigned char* data, std::int32_t count) {
    EXPECT_LE(count, data[0] == 240 ? 2400 : 2048);
    return count == 0 ? 0 : data[0] * 10;
  })};
  Bytes stream;
  const Bytes small = Bytes(1, '\x14') + Bytes(199, 's');
  for (int i = 0; i < 100; ++i) stream += small;
  EXPECT_EQ(tens.Feed(stream), Result::kGoOn);
  EXPECT_TRUE(tens.Gave(std::vector<Bytes>(100, small)));
  const Bytes longer = Bytes(1, '\xF0') + Bytes(2399, 'l');
  EXPECT_EQ(tens.Feed(longer + small), Result::kGoOn);
  EXPECT_TRUE(tens.Gave({longer, small}));
  EXPECT_EQ(tens.pass.longest, 2400);

  CutterFeed never{CFTPkgCutter([](const unsigned char*, std::int32_t) { return 0; })};
  EXPECT_EQ(never.Feed(Bytes(2047, 'n')), Result::kGoOn);
  EXPECT_EQ(never.Feed("n"), Result::kNoLength) << "a full regular buffer cannot be read into";

  CutterFeed shrinks{CFTPkgCutter([](const unsigned char* data, std::int32_t count) {
    return count == 0 ? 0 : data[0] == 'y' ? 500 : count < 3000 ? 3000 : 2500;
  })};
  EXPECT_EQ(shrinks.Feed(Bytes(2500, 's') + Bytes(500, 'y')), Result::kGoOn);
  EXPECT_TRUE(shrinks.Gave({Bytes(2500, 's'), Bytes(500, 'y')})) << "what is left comes next";
}

}  // namespace
