// Packages on the wire: their bytes, their check sums, and how a stream is cut into them.
#include "client/package.h"
#include "client/check_sum_run.h"

#include <gtest/gtest.h>

#include "00shcode/ftmtsockimpl/pkg_cutter.h"
#include "client/check_sum.h"
#include "tests/support/wire.h"

namespace {

using namespace testkit;
using Result = CFTPkgCutter::Result;

constexpr std::int32_t kMaxPkgLen = 5242880;

// The body; nothing when the package is refused. All bytes lie in blocks of exactly their size, so
// that a read behind them is seen.
std::optional<Bytes> Decode(const Bytes& bytes) {
  CFTBuffer buffer(static_cast<std::uint32_t>(bytes.size()));
  buffer.Append(bytes.data(), static_cast<std::int32_t>(bytes.size()));
  PkgHead head;
  char* body = nullptr;
  std::int32_t length = 0;
  const std::int32_t result = ft::DecodePkg(&buffer, &head, &body, &length);
  const ft::FTBodyPtr owned(body);
  EXPECT_EQ(result, body == nullptr ? -1 : 0);
  if (body == nullptr) return std::nullopt;
  return Bytes(body, static_cast<std::size_t>(length));
}

TEST(Package, IsDecodedWhateverFollowsUnlessItIsCutOrDamaged) {
  for (const Bytes& body : {Bytes(), Bytes(5, '\0'), PatternBody(4000)}) {
    EXPECT_TRUE(Decode(BuildPackage(body) + "more") == body) << body.size() << " bytes";
  }
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
}

TEST(Package, HasItsLengthInTheFirstTwelveBytes) {
  for (std::int32_t count = 0; count <= 15; ++count) {
    EXPECT_EQ(ft::GetPkgLen(BuildPackage("abc").data(), count), count < 12 ? 0 : 15) << count;
  }
  EXPECT_EQ(ft::GetPkgLen(BuildHeader(0x7FFFFFF3, "sum?").data(), 12), INT32_MAX);
  CFTBuffer buffer;
  for (const std::uint32_t length : {0x7FFFFFF4U, 0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU}) {
    EXPECT_LT(ft::GetPkgLen(BuildHeader(length, "sum?").data(), 12), 0) << length;
    EXPECT_FALSE(Decode(BuildHeader(length, CheckSum("")))) << length;
    EXPECT_EQ(ft::EncodePkg(&buffer, "x", static_cast<std::int32_t>(length)), -1) << length;
  }
}

// From an odd address to the very end of a block, so that a read behind the data is seen.
Bytes CheckSumOf(const Bytes& data) {
  const auto block = std::make_unique<char[]>(1 + data.size());
  data.copy(block.get() + 1, data.size());
  unsigned char check_sum[4];
  ft::CalcCheckSum(check_sum, block.get() + 1, static_cast<std::int32_t>(data.size()));
  return Bytes(reinterpret_cast<const char*>(check_sum), sizeof check_sum);
}

// The library sums blocks of words at once where their order cannot matter, the kit word by word.
// Sums that stay at a border or cross it again and again, wherever a block may begin.
TEST(CheckSum, RunsOfWordsThatCrossTheBorders) {
  const Bytes largest = BigEndian(0x7FFFFFFF);
  EXPECT_EQ(CheckSum(largest + largest + BigEndian(2)), BigEndian(0xFFFFFFFE)) << "just folded";
  const Bytes patterns[] = {largest,      BigEndian(0x80000000), BigEndian(0xFFFFFFFF),
                            BigEndian(0), BigEndian(1),          largest + largest + BigEndian(1)};
  for (std::uint32_t seed = 1; seed <= 2000; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](std::uint32_t limit) {
      return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
    };
    const std::uint32_t longest_run = 1 + below(seed % 100 == 0 ? 50000 : 120);
    Bytes data;
    while (data.size() < 1600 + seed % 3 * 4000) {
      const Bytes& pattern = patterns[below(6)];
      for (std::uint32_t run = 1 + below(longest_run); run > 0; --run) data += pattern;
    }
    data.resize(data.size() - below(260));
    ASSERT_TRUE(CheckSumOf(data) == CheckSum(data)) << "seed " << seed;
    // Whatever this processor offers, the others' way is right too.
    const auto* const block = reinterpret_cast<const unsigned char*>(data.data());
    const ft::WordRun words = ft::ReadWords(block, ft::WordRun::kBlockBytes);
    const ft::WordRun parts = ft::ReadBlock(block);
    ASSERT_TRUE(parts.total == words.total && parts.top == words.top) << "seed " << seed;
  }
}

// Feeds a cutter as a link's receive thread does: a cut after each read of at most what fits.
struct CutterFeed {
  // Stops at the first result but kGoOn.
  Result Feed(const Bytes& bytes) {
    pass = {};
    for (std::size_t fed = 0; fed < bytes.size() && pass.result == Result::kGoOn;) {
      platform::BytePiece spaces[CFTPkgCutter::kMaxSpaces];
      const std::size_t fed_before = fed;
      for (int i = 0, count = cutter.GetSpaces(spaces); i < count; ++i) {
        const auto room = static_cast<std::size_t>(spaces[i].length);
        fed += bytes.copy(static_cast<char*>(spaces[i].data), room, fed);
      }
      cutter.Commit(static_cast<std::int32_t>(fed - fed_before));
      pass = cutter.Cut(kMaxPkgLen, &packages);
    }
    return pass.result;
  }

  // Whether exactly these packages were cut since the last call.
  bool Gave(const std::vector<Bytes>& expected) {
    std::vector<Bytes> given;
    for (const FTBufferPtr& package : std::exchange(packages, {})) {
      EXPECT_EQ(*package->GetWritePos(), 0) << "behind every package";
      given.emplace_back(reinterpret_cast<const char*>(package->GetData()),
                         static_cast<std::size_t>(package->GetDataLen()));
    }
    return given == expected;
  }

  CFTPkgCutter cutter{&ft::GetPkgLen};
  CFTPkgCutter::Pass pass{};
  std::vector<FTBufferPtr> packages{};
};

TEST(PkgCutter, TheSamePackagesComeOutHoweverTheStreamIsSplit) {
  const std::size_t sizes[] = {0,    1,    3,    88,   2024,  2035,  2036,
                               2037, 2048, 4083, 4084, 10240, 65524, 200000};
  for (std::uint32_t seed = 1; seed <= 17; ++seed) {
    std::mt19937 random(seed);
    std::vector<Bytes> packages;
    Bytes stream;
    for (std::uint32_t i = 0; i < 60; ++i) {
      packages.push_back(BuildPackage(PatternBody(sizes[random() % std::size(sizes)], i)));
      stream += packages.back();
    }
    CutterFeed feed;
    std::uniform_int_distribution<std::size_t> read_size(1, std::size_t{1} << (seed % 17));
    for (std::size_t offset = 0, size = 0; offset < stream.size(); offset += size) {
      size = read_size(random);
      ASSERT_EQ(feed.Feed(stream.substr(offset, size)), Result::kGoOn);
    }
    EXPECT_TRUE(feed.Gave(packages)) << seed;
  }
}

TEST(PkgCutter, AFaultTakesThePackagesOfItsRegularBufferAndTheBytesBehindItAlong) {
  const Bytes good = BuildPackage(PatternBody(88));
  CutterFeed feed;
  Bytes stream;
  for (int i = 0; i < 21; ++i) stream += good;
  EXPECT_EQ(feed.Feed(stream + BuildHeader(kMaxPkgLen - 12, "sum?") + "behind it"),
            Result::kTooBig);
  EXPECT_EQ(feed.pass.cut, 21);
  EXPECT_TRUE(feed.Gave(std::vector<Bytes>(20, good)))
      << "a full regular buffer lies before the one at fault";
  EXPECT_EQ(feed.Feed(good), Result::kGoOn);
  EXPECT_TRUE(feed.Gave({good})) << "nothing of the fault is left";
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
