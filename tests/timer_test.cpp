#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/cranked_queue.h"

using namespace testkit;

TEST(Timer, FiresOnceItsDelayIsOverInTheOrderOfArming) {
  CrankedQueue queue;
  queue.SetTimer(1, 100);
  queue.SetTimer(2, 50);
  queue.SetTimer(2, 50);
  queue.SetTimer(3, 5000);
  queue.PostMsg(500, "", 1);
  queue.SetTimer(4, 0);
  EXPECT_EQ(queue.Cycle(49), (IdList{4, 500})) << "timers before messages";
  EXPECT_EQ(queue.Cycle(51), (IdList{1, 2, 2}));
  EXPECT_EQ(queue.Cycle(4899), IdList{});
  EXPECT_EQ(queue.Cycle(10), IdList{3});
  EXPECT_EQ(queue.Cycle(10000), IdList{});
}

TEST(Timer, ScansAreTenMillisecondsApart) {
  CrankedQueue queue;
  queue.SetTimer(1, 0);
  queue.SetTimer(2, -5);
  EXPECT_EQ(queue.Cycle(9), IdList{}) << "9 ms after construction";
  EXPECT_EQ(queue.Cycle(1), (IdList{1, 2})) << "a cycle without a scan moves no gate";
  EXPECT_EQ(queue.Cycle(10), IdList{}) << "a scan that finds nothing is one too";
  queue.SetTimer(3, 0);
  EXPECT_EQ(queue.Cycle(9), IdList{}) << "9 ms after a scan";
  EXPECT_EQ(queue.Cycle(1), IdList{3});
}

TEST(Timer, RearmedInItsHandlerCountsFromTheRearming) {
  class Periodic : public CrankedQueue {
   protected:
    void OnMsg(const FTMsg& msg, std::int32_t draining) override {
      CrankedQueue::OnMsg(msg, draining);
      EXPECT_EQ((Fields{msg.p1, msg.p2, msg.p3, msg.p4}), (Fields{11, 12, 13, 14}));
      SetTimerAgain(msg);
    }
  };
  Periodic queue;
  queue.SetTimer(1, 100, 11, 12, 13, 14);
  EXPECT_EQ(queue.Cycle(130), IdList{1}) << "30 ms late";
  EXPECT_EQ(queue.Cycle(99), IdList{}) << "129 ms after it was due";
  EXPECT_EQ(queue.Cycle(10), IdList{1});
}
