// After each read the cutter gives the packages that a plain one gives, also after a fault.
#include "client/package.h"
#include "tests/fuzz/script.h"
#include "tests/support/cutter_feed.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  testkit::CutterFeed feed{CFTPkgCutter(&ft::GetPkgLen)};
  fuzz::PlainCutter plain;
  for (const fuzz::Chunk& chunk : fuzz::ReadScript({data, size})) {
    for (testkit::Bytes rest = chunk.bytes; !rest.empty();) {
      const std::size_t read = feed.ReadOnce(rest);
      std::vector<testkit::Bytes> expected;
      EXPECT_EQ(feed.pass.result, plain.Feed(rest.substr(0, read), &expected));
      EXPECT_TRUE(feed.Gave(expected));
      rest.erase(0, read);
    }
  }
  return 0;
}
