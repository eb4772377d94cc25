#include "00shcode/mytoolkit/clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tests/support/fast_clock.h"
#include "tests/support/run_on_threads.h"

using namespace testkit;

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
    EXPECT_EQ(DiffMs(c.a, c.b), c.difference);
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
  const FTTime start = GetTickTime();
  RunOnThreads(4, [&](int) {
    FTTime last = start;
    for (int round = 0; round < 20000; ++round) {
      const FTTime now = GetTickTime();
      ASSERT_FALSE(now < last);
      last = now;
    }
    EXPECT_LT(last.seconds - start.seconds, 4294967);
  });
}
