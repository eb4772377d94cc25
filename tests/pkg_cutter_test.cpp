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
  // Stops at the first result but kGoOn.
  Result Feed(const Bytes& bytes) {
    std::size_t fed = 0;
    Result result = Result::kGoOn;
    while (fed < bytes.size() && result == Result::kGoOn) {
      const std::size_t room = static_cast<std::size_t>(Buffer()->GetFreeTail());
      EXPECT_GT(room, 0U) << "a read of nothing looks like the end of the link";
      if (room == 0) break;
      const std::size_t count = std::min(room, bytes.size() - fed);
      std::memcpy(Buffer()->GetWritePos(), bytes.data() + fed, count);
      Buffer()->CommitWrite(static_cast<std::int32_t>(count));
      fed += count;
      result = m_cutter.Cut(kMaxPkgLen, &m_packages);
    }
    return result;
  }

  CFTBuffer* Buffer() { return m_cutter.GetBuffer(); }

  // Whether exactly these packages were cut since the last call.
  bool Gave(const std::vector<Bytes>& expected) {
    std::vector<Bytes> packages;
    for (const FTBufferPtr& package : std::exchange(m_packages, {})) {
      const auto* const data = reinterpret_cast<const char*>(package->GetData());
      packages.emplace_back(data, static_cast<std::size_t>(package->GetDataLen()));
    }
    return packages == expected;
  }

 private:
  CFTPkgCutter m_cutter{&GetPkgLen};
  std::vector<FTBufferPtr> m_packages;
};

TEST(PkgCutter, PackagesAboveTheRegularBufferGetABufferOfTheirSize) {
  for (const std::int32_t size : {2047, 2048, 2049, kMaxPkgLen - 1}) {
    SCOPED_TRACE(size);
    CutterFeed feed;
    const Bytes package = Package(static_cast<std::size_t>(size));
    EXPECT_EQ(feed.Feed(package.substr(0, package.size() - 1)), Result::kGoOn);
    EXPECT_EQ(feed.Buffer()->GetFreeTail(), size < 2048 ? 2 : 1);
    EXPECT_TRUE(feed.Gave({}));
    EXPECT_EQ(feed.Feed(package.substr(package.size() - 1)), Result::kGoOn);
    EXPECT_TRUE(feed.Gave({package}));
    EXPECT_EQ(feed.Buffer()->GetFreeTail(), 2048);
  }
}

TEST(PkgCutter, AFaultKeepsThePackagesBeforeItAndDropsTheBytesBehindIt) {
  const Bytes good = Package(100);
  const std::pair<std::uint32_t, Result> faults[] = {{kMaxPkgLen, Result::kTooBig},
                                                     {0x7FFFFFFF, Result::kTooBig},
                                                     {0x80000000, Result::kProtocolError},
                                                     {0xFFFFFFFF, Result::kProtocolError}};
  for (const auto& [length, result] : faults) {
    SCOPED_TRACE(length);
    CutterFeed feed;
    const Bytes faulty = testkit::BuildHeader(length - 12, "sum?") + "bytes behind it";
    EXPECT_EQ(feed.Feed(good + good + faulty), result);
    EXPECT_TRUE(feed.Gave({good, good}));
    EXPECT_EQ(feed.Feed(good), Result::kGoOn);
    EXPECT_TRUE(feed.Gave({good}));
  }
}

TEST(PkgCutter, TheSamePackagesComeOutHoweverTheStreamIsSplit) {
  const std::size_t sizes[] = {12,   13,   15,   100,  1024, 2036,  2047,
                               2048, 2049, 2060, 4095, 4096, 10240, 50000};
  for (std::uint32_t seed = 1; seed <= 28; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<Bytes> packages;
    Bytes stream;
    for (std::uint32_t i = 0; i < 60; ++i) {
      packages.push_back(Package(sizes[random() % std::size(sizes)], i));
      stream += packages.back();
    }
    CutterFeed feed;
    std::uniform_int_distribution<std::size_t> read_size(1, std::size_t{1} << (seed % 14));
    for (std::size_t offset = 0; offset < stream.size();) {
      const Bytes read = stream.substr(offset, read_size(random));
      ASSERT_EQ(feed.Feed(read), Result::kGoOn);
      offset += read.size();
    }
    EXPECT_TRUE(feed.Gave(packages));
  }
}

}  // namespace
