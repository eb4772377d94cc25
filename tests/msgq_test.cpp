#include "00shcode/ftmsgq/ftmsgq.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "00shcode/ftmsgq/sub_queues.h"
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

  Mailbox<FTMsg> m_handled;

 protected:
  void OnMsg(const FTMsg& msg, std::int32_t) override { m_handled.Push(msg); }
};

constexpr std::int32_t kQuota = 10000;

void Append(CFTSubQueues* queues, const std::string& key, const IdList& ids,
            std::int32_t weight = 1) {
  for (const std::uint32_t id : ids) {
    FTMsg msg;
    msg.id = id;
    queues->Append(key, weight, msg);
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

TEST(MsgQueue, HandlesOwnPostsInALaterCycleAndCallsItsHooks) {
  class Hooked : public CrankedQueue {
   public:
    std::string m_hooks;

   protected:
    void OnMsg(const FTMsg& msg, std::int32_t) override {
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
    void OnMsg(const FTMsg& msg, std::int32_t draining) override { CFTMsgQ::OnMsg(msg, draining); }
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
  EXPECT_EQ(queue.Cycle(), IdList{});
  EXPECT_EQ(IdsOf(queue.TakeQueuedMsgs()), IdList{102});
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
    for (const FTMsg& msg : queue.m_handled.All()) ASSERT_EQ(msg.p2, next[msg.p1]++) << msg.p1;
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
    EXPECT_EQ(SubQueueShare(kQuota, pending, sub_queues, weight), share)
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
