#include "00shcode/ftmtsockimpl/pkg_cutter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "client/package.h"
#include "tests/support/wire.h"

namespace {

using testkit::Bytes;
using Result = CFTPkgCutter::Result;

constexpr std::int32_t kMaxPkgLen = 5242880;

Bytes Package(std::size_t size, std::uint32_t seed = 1) {
  return testkit::BuildPackage(testkit::PatternBody(size - 12, seed));
}

// Feeds a cutter as a link's receive thread does: a cut after each read of at most what fits.
class CutterFeed {
 public:
  explicit CutterFeed(CFTPkgCutter::LengthRule rule = &ft::GetPkgLen) : m_cutter(std::move(rule)) {}

  // Stops at the first result but kGoOn.
  Result Feed(const Bytes& bytes) {
    std::size_t fed = 0;
    m_pass = {};
    while (fed < bytes.size() && m_pass.result == Result::kGoOn) {
      const std::size_t count = Read(bytes.data() + fed, bytes.size() - fed);
      EXPECT_GT(count, 0U) << "a read of nothing looks like the end of the link";
      if (count == 0) break;
      fed += count;
      m_pass = m_cutter.Cut(kMaxPkgLen, &m_packages);
    }
    return m_pass.result;
  }

  const CFTPkgCutter::Pass& LastPass() const { return m_pass; }

  // Whether exactly these packages were cut since the last call.
  bool Gave(const std::vector<Bytes>& expected) {
    std::vector<Bytes> packages;
    for (const FTBufferPtr& package : std::exchange(m_packages, {})) {
      EXPECT_EQ(*package->GetWritePos(), 0) << "behind every package";
      const auto* const data = reinterpret_cast<const char*>(package->GetData());
      packages.emplace_back(data, static_cast<std::size_t>(package->GetDataLen()));
    }
    return packages == expected;
  }

 private:
  std::size_t Read(const char* data, std::size_t size) {
    platform::BytePiece spaces[CFTPkgCutter::kMaxSpaces];
    const int count = m_cutter.GetSpaces(spaces);
    std::size_t read = 0;
    for (int i = 0; i < count; ++i) {
      const std::size_t part = std::min(size - read, static_cast<std::size_t>(spaces[i].length));
      std::memcpy(spaces[i].data, data + read, part);
      read += part;
    }
    m_cutter.Commit(static_cast<std::int32_t>(read));
    return read;
  }

  CFTPkgCutter m_cutter;
  CFTPkgCutter::Pass m_pass;
  std::vector<FTBufferPtr> m_packages;
};

// The length stands in the first byte, in tens; what the rule was shown must fit the regular buffer
// unless a longer package is being assembled.
std::int32_t TensRule(const unsigned char* data, std::int32_t count) {
  EXPECT_LE(count, 2560);
  return count == 0 ? 0 : data[0] == 0xFF ? -1 : data[0] * 10;
}

TEST(PkgCutter, TheSamePackagesComeOutHoweverTheStreamIsSplit) {
  const std::size_t sizes[] = {12,   13,   15,   100,  1024,  2036,  2047,  2048,
                               2049, 2060, 4095, 4096, 10240, 50000, 65536, 200000};
  for (std::uint32_t seed = 1; seed <= 34; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<Bytes> packages;
    Bytes stream;
    for (std::uint32_t i = 0; i < 60; ++i) {
      packages.push_back(Package(sizes[random() % std::size(sizes)], i));
      stream += packages.back();
    }
    CutterFeed feed;
    std::uniform_int_distribution<std::size_t> read_size(1, std::size_t{1} << (seed % 17));
    for (std::size_t offset = 0; offset < stream.size();) {
      const Bytes read = stream.substr(offset, read_size(random));
      ASSERT_EQ(feed.Feed(read), Result::kGoOn);
      offset += read.size();
    }
    EXPECT_TRUE(feed.Gave(packages));
  }
}

TEST(PkgCutter, AFaultTakesThePackagesOfItsRegularBufferAndTheBytesBehindItAlong) {
  const Bytes good = Package(100);
  const Bytes large = Package(2049);
  const std::vector<Bytes> windowful(20, good);
  const std::pair<std::uint32_t, Result> faults[] = {{kMaxPkgLen, Result::kTooBig},
                                                     {0x7FFFFFFF, Result::kTooBig},
                                                     {0x80000000, Result::kProtocolError},
                                                     {0xFFFFFFFF, Result::kProtocolError}};
  for (const auto& [length, result] : faults) {
    SCOPED_TRACE(length);
    CutterFeed feed;
    const Bytes faulty = testkit::BuildHeader(length - 12, "sum?") + "bytes behind it";
    EXPECT_EQ(feed.Feed(good + good + faulty), result);
    EXPECT_TRUE(feed.Gave({}));
    EXPECT_EQ(feed.LastPass().cut, 2) << "they were cut all the same";
    EXPECT_EQ(feed.Feed(large + good + faulty), result);
    EXPECT_TRUE(feed.Gave({large})) << "it had a buffer of its own";
    Bytes stream;
    for (const Bytes& package : windowful) stream += package;
    EXPECT_EQ(feed.Feed(stream + good + faulty), result);
    EXPECT_TRUE(feed.Gave(windowful)) << "one full regular buffer lies before the one at fault";
    EXPECT_EQ(feed.Feed(large.substr(0, 2030)), Result::kGoOn);
    EXPECT_EQ(feed.Feed(large.substr(2030) + faulty), result);
    EXPECT_TRUE(feed.Gave({large}));
    EXPECT_EQ(feed.Feed(good), Result::kGoOn) << "nothing of the fault is left";
    EXPECT_TRUE(feed.Gave({good}));
  }
  CutterFeed feed;
  const Bytes largest = Package(kMaxPkgLen - 1);
  EXPECT_EQ(feed.Feed(largest), Result::kGoOn);
  EXPECT_TRUE(feed.Gave({largest}));
}

TEST(PkgCutter, TheRuleSeesWhatARegularBufferHoldsAndMayChangeItsMind) {
  CutterFeed tens(&TensRule);
  const Bytes small = Bytes(1, '\x14') + Bytes(199, 's');
  Bytes stream;
  std::vector<Bytes> expected(100, small);
  for (const Bytes& package : expected) stream += package;
  EXPECT_EQ(tens.Feed(stream), Result::kGoOn);
  EXPECT_TRUE(tens.Gave(expected));
  EXPECT_FALSE(tens.LastPass().cut_long);
  const Bytes longer = Bytes(1, '\xF0') + Bytes(2399, 'l');
  EXPECT_EQ(tens.Feed(longer + small), Result::kGoOn);
  EXPECT_TRUE(tens.Gave({longer, small}));
  EXPECT_TRUE(tens.LastPass().cut_long);

  // Shrinks to 2,100 bytes once 2,200 are there; what is left begins the next package.
  CutterFeed shrinking([](const unsigned char* data, std::int32_t count) {
    return count == 0 ? 0 : data[0] == 's' ? (count < 2200 ? 3000 : 2100) : 150;
  });
  const Bytes shrunk = Bytes(2100, 's');
  EXPECT_EQ(shrinking.Feed(shrunk + Bytes(100, 'a')), Result::kGoOn);
  EXPECT_TRUE(shrinking.Gave({shrunk}));
  EXPECT_EQ(shrinking.Feed(Bytes(49, 'a')), Result::kGoOn);
  EXPECT_TRUE(shrinking.Gave({}));
  EXPECT_EQ(shrinking.Feed("b"), Result::kGoOn);
  EXPECT_TRUE(shrinking.Gave({Bytes(149, 'a') + "b"}));

  CutterFeed growing([](const unsigned char*, std::int32_t count) { return count + 2000; });
  EXPECT_EQ(growing.Feed(Bytes(2048, 'g')), Result::kGoOn);
  EXPECT_EQ(growing.Feed(Bytes(1, 'g')), Result::kLengthGrew);

  CutterFeed never([](const unsigned char*, std::int32_t) { return 0; });
  EXPECT_EQ(never.Feed(Bytes(2047, 'n')), Result::kGoOn);
  EXPECT_EQ(never.Feed("n"), Result::kNoLength) << "a full regular buffer cannot be read into";
}

}  // namespace
