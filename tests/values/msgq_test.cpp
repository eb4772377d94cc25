// Messages, their queues and their timers, turned by hand; the last word is a thread's.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmsgq/sub_queues.h"
#include "00shcode/ftmsgq/typed_msg.h"
#include "tests/support/cranked_queue.h"
#include "tests/support/mailbox.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/stderr_capture.h"

using namespace testkit;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

// A queue on a thread of its own that keeps what it handles.
class RecordingQueue : public CFTMsgQ {
 public:
  ~RecordingQueue() override {
    PostQuit();
    WaitThreadExit();
  }

  Mailbox<std::pair<std::uintptr_t, std::uintptr_t>> m_handled;  // p1, p2

 protected:
  void OnMsg(FTMsg& msg, std::int32_t) override { m_handled.Push({msg.p1, msg.p2}); }
};

std::atomic<std::size_t> g_held{0};

std::size_t HeldBytes() {
  return g_held;
}

constexpr std::int32_t kQuota = 10000;

void Append(CFTSubQueues* queues, const std::string& key, const IdList& ids,
            std::int32_t weight = 1) {
  for (const std::uint32_t id : ids) {
    queues->Append(key, weight, FTMsg(id));
  }
}

IdList Collect(CFTSubQueues* queues) {
  std::vector<FTMsg> batch;
  queues->Collect(kQuota, &batch);
  IdList ids;
  for (const FTMsg& msg : batch) ids.push_back(msg.id);
  return ids;
}

}  // namespace

// Whatever this program allocates knows its size.
void* operator new(std::size_t bytes) {
  auto* const block = static_cast<std::size_t*>(std::malloc(bytes + 2 * sizeof(std::size_t)));
  if (block == nullptr) throw std::bad_alloc();
  *block = bytes;
  g_held += bytes;
  return block + 2;
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) return;
  auto* const block = static_cast<std::size_t*>(memory) - 2;
  g_held -= *block;
  std::free(block);
}

void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

TEST(MsgQueue, HandlesOwnPostsInALaterCycleAndCallsItsHooks) {
  class Hooked : public CrankedQueue {
   public:
    std::string m_hooks;

   protected:
    void OnMsg(FTMsg& msg, std::int32_t) override {
      m_hooks += 'm';
      if (msg.id == 101) PostMsg(102, "", 1);
    }
    void OnIdle() override { m_hooks += 'i'; }
    void OnLoop() override { m_hooks += "l "; }
  };
  Hooked queue;
  queue.Cycle();
  queue.PostMsg(101, "", 1);
  queue.PostMsg(500, "", 1);
  for (int cycle = 0; cycle < 3; ++cycle) queue.Cycle();
  EXPECT_EQ(queue.m_hooks, "il mml ml il ");
}

TEST(MsgQueue, HandsUnknownMessagesOnByFieldsAndReportsThem) {
  class Ignorant : public CrankedQueue {
   public:
    std::vector<Fields> m_calls;

   protected:
    void OnMsg(FTMsg& msg, std::int32_t draining) override { CFTMsgQ::OnMsg(msg, draining); }
    std::int32_t OnMsgFields(std::uint32_t id, std::uint32_t param1, std::int32_t draining,
                             std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3,
                             std::uintptr_t p4) override {
      m_calls.push_back({id, param1, p1, p2, p3, p4});
      return CFTMsgQ::OnMsgFields(id, param1, draining, p1, p2, p3, p4);
    }
  };
  const StderrCapture err;
  Ignorant queue;
  queue.SetTimer(2003, 5, 6, 7, 8, UINTPTR_MAX);
  queue.PostMsg(999, "key", 5, 1, 2, 3, UINTPTR_MAX);
  queue.Cycle(10);
  EXPECT_EQ(queue.m_calls, (std::vector<Fields>{{FTMSG_TIMER, 2003, 6, 7, 8, UINTPTR_MAX},
                                                {999, 0, 1, 2, 3, UINTPTR_MAX}}));
  const std::string fence(21, '$');
  for (const char* const id : {"TimerID=2003", "MsgID=999"}) {
    const std::string message = fence + " the msg[" + id + "] has not been deal. " + fence;
    EXPECT_EQ(err.LinesWith(",  ftmsgq.cpp,73, 0,>0: " + message).size(), 1U) << err.Text();
  }
}

TEST(MsgQueue, QuitLeavesWhatFollowsInItsSubQueue) {
  CrankedQueue queue;
  queue.PostQuit();
  queue.PostMsg(102, "", 1);
  queue.PostMsg(103, "x", 1);
  EXPECT_EQ(queue.Cycle(), IdList{103}) << "other sub-queues of the cycle still count";
  EXPECT_EQ(queue.Cycle(), IdList{}) << "the thread has ended";
}

// A lost wake-up would last an hour.
TEST(MsgQueue, LosesAndReordersNothingOfSeveralPostersNorAQuit) {
  for (std::uintptr_t round = 0; round < 120; ++round) {
    RecordingQueue queue;
    queue.SetIdleWaitMs(3600 * 1000);
    ASSERT_EQ(queue.StartThread(0), 0);
    RunOnThreads(4, [&](int poster) {
      for (std::uintptr_t i = 0; i < 2 * round; ++i) {
        queue.PostMsg(101, "shared", 1, static_cast<std::uintptr_t>(poster), i);
      }
    });
    ASSERT_TRUE(queue.m_handled.WaitFor(8 * round, 20s));
    std::uintptr_t next[4] = {};
    for (const auto& [p1, p2] : queue.m_handled.All()) ASSERT_EQ(p2, next[p1]++) << p1;
  }
}

TEST(MsgQueue, WaitsAfterAnIdleCycleOnly) {
  CrankedQueue queue;
  queue.SetIdleWaitMs(120);
  auto start = steady_clock::now();
  EXPECT_EQ(queue.Cycle(), IdList{});
  EXPECT_GE(steady_clock::now() - start, 120ms);

  queue.SetIdleWaitMs(20000);
  queue.SetTimer(1, 0);
  start = steady_clock::now();
  EXPECT_EQ(queue.Cycle(10), IdList{1}) << "work that is there is not waited for";
  EXPECT_EQ(queue.Cycle(), IdList{}) << "a queue that was busy does not wait";
  EXPECT_LT(steady_clock::now() - start, 10s);
}

// What the share of a flooded sub-queue shows: how many sub-queues there still are.
TEST(MsgQueue, ForgetsEmptySubQueuesExceptTheDefaultEachMinute) {
  CrankedQueue queue;
  for (int minute = 0; minute < 2; ++minute) {
    for (const char* const key : {"", "a", "b", "c"}) queue.PostMsg(101, key, 1);
    EXPECT_EQ(queue.Cycle().size(), 4U);
    for (int i = 0; i < 30000; ++i) queue.PostMsg(500, "flooded", 2);
    EXPECT_EQ(queue.Cycle(59999).size(), 8000U) << "five sub-queues in minute " << minute;
    EXPECT_EQ(queue.Cycle(1).size(), 8000U) << "the sweep comes last in its cycle";
    EXPECT_EQ(queue.Cycle().size(), 14000U) << "two sub-queues, and nothing was lost";
  }
}

TEST(SubQueueShare, IsTheQuotaUntilTheBacklogReachesIt) {
  const std::int32_t cases[][4] = {// pending, sub-queues, weight, share
                                   {9999, 200, 10, 10000}, {1000000, 1, 10, 10000},
                                   {10000, 3, 2, 13332},   {10000, 200, 2, 200},
                                   {10000, 200, 3, 300},   {10000, 5, -3, 4000},
                                   {10000, 5, 15, 40000},  {30000, 20001, 10, 200}};
  for (const auto& [pending, sub_queues, weight, share] : cases) {
    EXPECT_EQ(ft::SubQueueShare(kQuota, pending, sub_queues, weight), share)
        << pending << " pending, " << sub_queues << " sub-queues, weight " << weight;
  }
}

TEST(SubQueues, ReadTheBacklogAfreshForEachSubQueue) {
  CFTSubQueues queues;
  Append(&queues, "a", IdList(4000, 101));
  Append(&queues, "b", IdList(8000, 101));
  for (const char* const key : {"c", "d", "e"}) Append(&queues, key, {101});
  EXPECT_EQ(Collect(&queues).size(), 12003U) << "what a leaves is below the quota";
}

TEST(SubQueues, ShareByTheLastWeightAndStarveNobody) {
  CFTSubQueues queues;
  Append(&queues, "a", IdList(50000, 101), 10);
  Append(&queues, "a", {101}, 2);
  for (const char* const key : {"b", "c", "d", "e"}) Append(&queues, key, {102});
  IdList expected(8000, 101);
  expected.insert(expected.end(), 4, 102);
  EXPECT_EQ(Collect(&queues), expected);
}

TEST(SubQueues, AreServedInTheOrderOfTheirKeys) {
  CFTSubQueues queues;
  const std::string keys[] = {"b", "\xC3", "aa", "", "a", "B", std::string("a\0", 2), "~"};
  std::uint32_t id = 100;
  for (const std::string& key : keys) Append(&queues, key, {id++});
  EXPECT_EQ(Collect(&queues), (IdList{103, 105, 104, 106, 102, 100, 107, 101}));
}

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
    void OnMsg(FTMsg& msg, std::int32_t draining) override {
      EXPECT_EQ((Fields{msg.p1, msg.p2, msg.p3, msg.p4}), (Fields{11, 12, 13, 14}));
      EXPECT_EQ(msg.param2, 100);
      SetTimerAgain(msg);
      CrankedQueue::OnMsg(msg, draining);
    }
  };
  Periodic queue;
  queue.SetTimer(1, 100, 11, 12, 13, 14);
  EXPECT_EQ(queue.Cycle(130), IdList{1}) << "30 ms late";
  EXPECT_EQ(queue.Cycle(99), IdList{}) << "129 ms after it was due";
  EXPECT_EQ(queue.Cycle(10), IdList{1});
}

// A payload that knows whether it still lives.
struct Payload {
  explicit Payload(int* count) : alive(count) { ++*alive; }
  ~Payload() { --*alive; }
  int* const alive;
};
using Owned = FTTypedMsg<700, std::unique_ptr<Payload>, std::int32_t, std::shared_ptr<const int>>;

TEST(TypedMsg, WhatAMessageCarriesIsReleasedOnceWhoeverDropsIt) {
  int alive = 0;
  const auto shared = std::make_shared<const int>(7);
  const auto make = [&] { return Owned::Make(std::make_unique<Payload>(&alive), -5, shared); };
  {
    CrankedQueue queue;  // its handler takes nothing out
    queue.Post("", 1, make());
    EXPECT_EQ(queue.Cycle(), IdList{700});
    queue.Post("a", 1, make());
    queue.PostQuit();
    std::vector<FTMsg> more;
    for (int i = 0; i < 3; ++i) more.push_back(make());
    queue.PostAll("b", 1, &more);
    EXPECT_TRUE(more.empty());
    EXPECT_EQ(alive, 4) << "the one that was handled is gone";
  }
  EXPECT_EQ(alive, 0) << "a destroyed queue releases what nobody handled";
  EXPECT_EQ(shared.use_count(), 1);

  FTMsg msg = make();
  msg = make();
  EXPECT_EQ(alive, 1) << "one that is overwritten releases its own";
  {
    const auto [payload, number, number7] = Owned::Take(msg);
    EXPECT_EQ(number, -5);
    EXPECT_EQ(*number7, 7);
    const FTMsg rest = std::move(msg);
    EXPECT_EQ(alive, 1) << "what was taken is the taker's";
  }
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(shared.use_count(), 1);
}

// A handler that runs a cycle of its own gets what is left of the one under way first.
TEST(MsgQueue, ANestedCycleKeepsTheOrder) {
  class Nested : public CrankedQueue {
   public:
    IdList m_order;

   protected:
    void OnMsg(FTMsg& msg, std::int32_t) override {
      m_order.push_back(msg.id);
      if (msg.id > 103) return;
      for (int i = 0; i < 2000; ++i) PostMsg(200 + msg.id, "", 1);
      RunOnce();
      EXPECT_LT(msg.id, 104U) << "the message is still there";
    }
  };
  Nested queue;
  for (const std::uint32_t id : {101U, 102U, 103U, 104U}) queue.PostMsg(id, "", 1);
  queue.RunOnce();
  IdList expected = {101, 102, 103, 104};
  for (const std::uint32_t id : {101U, 102U, 103U}) expected.insert(expected.end(), 2000, 200 + id);
  queue.RunOnce();
  EXPECT_EQ(queue.m_order, expected);
}

// Seen from what the program's own allocator has given out.
TEST(MsgQueue, GivesTheMemoryOfABurstBackWhenItIsIdle) {
  constexpr std::size_t kBurst = 300000;
  CrankedQueue queue;
  queue.SetIdleWaitMs(1);
  queue.Cycle();
  const std::size_t before = HeldBytes();
  for (std::size_t i = 0; i < kBurst; ++i) queue.PostMsg(101, "", 1);
  std::size_t handled = 0;
  while (handled < kBurst) handled += queue.Cycle().size();
  EXPECT_GT(HeldBytes(), before + kBurst);
  for (int idle = 0; idle < 3; ++idle) queue.Cycle();
  EXPECT_LT(HeldBytes(), before + kBurst);
}
