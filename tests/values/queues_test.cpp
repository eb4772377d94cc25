// Queues of messages, turned by hand, and the lists of the engine.
#include <gtest/gtest.h>

#include <atomic>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmsgq/sub_queues.h"
#include "00shcode/ftmsgq/typed_msg.h"
#include "00shcode/ftmtsockimpl/connect_schedule.h"
#include "00shcode/ftmtsockimpl/send_queue.h"
#include "tests/support/clock.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/threads.h"

using namespace testkit;

static std::atomic<std::size_t> g_held{0};

// Whatever this program allocates knows its size.
void* operator new(std::size_t bytes) {
  auto* const block = static_cast<std::size_t*>(std::malloc(bytes + 2 * sizeof(std::size_t)));
  g_held += * block = bytes;
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

namespace {

using IdList = std::vector<std::uint32_t>;

// A queue without a thread, and its clock: the test turns the crank, one cycle at a time.
struct CrankedQueue : ManualClock, CFTMsgQ {
  CrankedQueue() {
    SetIdleWaitMs(0);
    OnEnterThread();
  }
  // Lets the clock go on, runs one cycle and returns what it handled: the timer ids of timer
  // messages, the message ids of others.
  IdList Cycle(std::uint32_t milliseconds = 0) {
    Advance(milliseconds);
    m_handled.clear();
    RunOnce();
    return m_handled;
  }
  void OnMsg(FTMsg& msg, std::int32_t) override {
    m_handled.push_back(msg.id == FTMSG_TIMER ? msg.param1 : msg.id);
  }
  using CFTMsgQ::RunOnce;
  IdList m_handled;
};

void Post(CFTMsgQ* queue, const std::string& key, int count, std::int32_t weight = 1,
          std::uint32_t id = 101) {
  for (; count > 0; --count) queue->PostMsg(id, key, weight);
}

TEST(MsgQueue, HandsUnknownMessagesOnByFieldsReportsThemAndCallsItsHooks) {
  using Fields = std::vector<std::uintptr_t>;
  struct Ignorant : CrankedQueue {
    void OnMsg(FTMsg& msg, std::int32_t draining) override {
      CFTMsgQ::OnMsg(msg, draining);
      if (m_calls.size() == 1) SetTimerAgain(msg);
    }
    std::int32_t OnMsgFields(std::uint32_t id, std::uint32_t param1, std::int32_t draining,
                             std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3,
                             std::uintptr_t p4) override {
      m_calls.push_back({id, param1, p1, p2, p3, p4});
      m_hooks += 'm';
      if (id == 999) PostMsg(998, "", 1);
      return CFTMsgQ::OnMsgFields(id, param1, draining, p1, p2, p3, p4);
    }
    void OnIdle() override { m_hooks += 'i'; }
    void OnLoop() override { m_hooks += "l "; }
    std::string m_hooks;
    std::vector<Fields> m_calls;
  };
  const StderrCapture err;
  Ignorant queue;
  queue.SetTimer(2003, 5, 6, 7, 8, UINTPTR_MAX);
  queue.PostMsg(999, "key", 5, 1, 2, 3, UINTPTR_MAX);
  for (int cycle = 0; cycle < 3; ++cycle) queue.Cycle(10);
  EXPECT_EQ(queue.m_hooks, "mml mml il ") << "own posts count in a later cycle";
  EXPECT_EQ(queue.m_calls[0], (Fields{FTMSG_TIMER, 2003, 6, 7, 8, UINTPTR_MAX}));
  EXPECT_EQ(queue.m_calls[2], queue.m_calls[0]) << "armed again";
  EXPECT_EQ(queue.m_calls[1], (Fields{999, 0, 1, 2, 3, UINTPTR_MAX}));
  const std::string fence(21, '$');
  for (const char* const id : {"TimerID=2003", "MsgID=999"}) {
    const std::string message = fence + " the msg[" + id + "] has not been deal. " + fence;
    EXPECT_GE(err.Count(",  ftmsgq.cpp,73, 0,>0: " + message), 1) << err.Text();
  }
}

TEST(MsgQueue, QuitLeavesWhatFollowsInItsSubQueue) {
  CrankedQueue queue;
  queue.PostQuit();
  Post(&queue, "", 1);
  Post(&queue, "x", 1, 1, 103);
  EXPECT_EQ(queue.Cycle(), IdList{103}) << "other sub-queues of the cycle still count";
  EXPECT_EQ(queue.Cycle(), IdList{}) << "the thread has ended";
}

// A lost wake-up would last an hour.
TEST(MsgQueue, LosesAndReordersNothingOfSeveralPostersNorAQuit) {
  struct CheckingQueue : CFTMsgQ {
    void OnMsg(FTMsg& msg, std::int32_t) override { EXPECT_EQ(msg.p1, m_next[msg.id - 101]++); }
    std::uintptr_t m_next[4] = {};
  };
  for (std::uintptr_t round = 0; round < 150; ++round) {
    CheckingQueue queue;
    queue.SetIdleWaitMs(3600 * 1000);
    ASSERT_EQ(queue.StartThread(0), 0);
    RunOnThreads(4, [&](int poster) {
      for (std::uintptr_t i = 0; i < round; ++i)
        queue.PostMsg(101U + static_cast<std::uint32_t>(poster), "", 1, i);
    });
    std::vector<FTMsg> quit;
    if (round % 2 == 0) quit.emplace_back(FTMSG_QUIT);
    queue.PostAll("", 1, &quit);
    if (round % 2 != 0) queue.PostQuit();
    queue.WaitThreadExit();
    for (const std::uintptr_t handled : queue.m_next) ASSERT_EQ(handled, round);
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
  queue.SetTimer(2, 120);
  EXPECT_EQ(queue.Cycle(), IdList{}) << "the next timer ends the wait";
  EXPECT_GE(steady_clock::now() - start, 120ms);
  EXPECT_LT(steady_clock::now() - start, 10s);
}

TEST(MsgQueue, GivesTheMemoryOfABurstBackWhenItIsIdle) {
  constexpr int kBurst = 300000;
  CrankedQueue queue;
  queue.SetIdleWaitMs(1);
  Post(&queue, "", 15000);
  const auto keep_busy = [&queue](int cycles) {
    for (; cycles > 0; --cycles) {
      EXPECT_EQ(queue.Cycle().size(), 10000U);
      Post(&queue, "", 10000);
    }
    return g_held.load();
  };
  const std::size_t busy = keep_busy(5);
  EXPECT_LT(keep_busy(50), busy + 100 * sizeof(FTMsg)) << "what has left made room for more";
  while (!queue.Cycle().empty()) {
  }
  const std::size_t before = g_held;
  std::vector<FTMsg> burst(kBurst);
  queue.PostAll("", 1, &burst);
  for (std::size_t handled = 0; handled < kBurst;) handled += queue.Cycle().size();
  EXPECT_GT(g_held, before + kBurst);
  for (int idle = 0; idle < 3; ++idle) queue.Cycle();
  EXPECT_LT(g_held, before + kBurst);
}

// A handler that runs a cycle of its own gets what is left of the one under way first.
TEST(MsgQueue, ANestedCycleKeepsTheOrder) {
  struct Nested : CrankedQueue {
    void OnMsg(FTMsg& msg, std::int32_t) override {
      m_order.push_back(msg.id);
      if (msg.id > 103) return;
      ::Post(this, "", 2000, 1, 200 + msg.id);
      RunOnce();
      EXPECT_LT(msg.id, 104U) << "the message is still there";
    }
    IdList m_order;
  };
  Nested queue;
  IdList expected = {101, 102, 103, 104};
  for (const std::uint32_t id : expected) Post(&queue, "", 1, 1, id);
  for (const std::uint32_t id : {301U, 302U, 303U}) expected.insert(expected.end(), 2000, id);
  queue.RunOnce();
  queue.RunOnce();
  EXPECT_EQ(queue.m_order, expected);
}

// What the share of a flooded sub-queue shows: how many sub-queues there still are.
TEST(SubQueues, AreForgottenWhenEmptyExceptTheDefaultEachMinute) {
  CrankedQueue queue;
  for (int minute = 0; minute < 2; ++minute) {
    for (const char* const key : {"", "a", "b", "c"}) Post(&queue, key, 1);
    EXPECT_EQ(queue.Cycle().size(), 4U);
    Post(&queue, "flooded", 30000, 2);
    EXPECT_EQ(queue.Cycle(59999).size(), 8000U) << "five sub-queues in minute " << minute;
    EXPECT_EQ(queue.Cycle(1).size(), 8000U) << "the sweep comes last in its cycle";
    EXPECT_EQ(queue.Cycle().size(), 14000U) << "two sub-queues, and nothing was lost";
  }
}

TEST(SubQueues, ShareTheQuotaOnceTheBacklogReachesIt) {
  const std::int32_t cases[][4] = {// pending, sub-queues, weight, share
                                   {9999, 200, 10, 10000}, {1000000, 1, 10, 10000},
                                   {10000, 3, 2, 13332},   {10000, 200, 2, 200},
                                   {10000, 200, 3, 300},   {10000, 5, -3, 4000},
                                   {10000, 5, 15, 40000},  {30000, 20001, 10, 200}};
  for (const auto& [pending, sub_queues, weight, share] : cases) {
    EXPECT_EQ(ft::SubQueueShare(10000, pending, sub_queues, weight), share)
        << pending << " pending, " << sub_queues << " sub-queues, weight " << weight;
  }
  CrankedQueue queue;
  Post(&queue, "a", 4000);
  Post(&queue, "b", 8000);
  for (const char* const key : {"c", "d", "e"}) Post(&queue, key, 1);
  EXPECT_EQ(queue.Cycle().size(), 12003U) << "what a leaves is below the quota";
  Post(&queue, "a", 50000, 10);
  Post(&queue, "a", 1, 2);
  for (const char* const key : {"b", "c", "d", "e"}) Post(&queue, key, 1, 1, 102);
  IdList expected(8000, 101);
  expected.insert(expected.end(), 4, 102);
  EXPECT_EQ(queue.Cycle(), expected) << "the last weight counts, and nobody starves";
}

TEST(Timer, FiresOnceItsDelayIsOverInTheOrderOfArming) {
  CrankedQueue queue;
  queue.SetTimer(1, 100);
  queue.SetTimer(2, 50);
  Post(&queue, "", 1, 1, 500);
  queue.SetTimer(4, 0);
  EXPECT_EQ(queue.Cycle(49), (IdList{4, 500})) << "timers before messages";
  EXPECT_EQ(queue.Cycle(51), (IdList{1, 2}));
  EXPECT_EQ(queue.Cycle(10000), IdList{});
  queue.SetTimer(5, 2000);
  EXPECT_EQ(queue.Cycle(2592000000), IdList{5}) << "after a month of sleep";
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

TEST(TypedMsg, WhatAMessageCarriesIsReleasedOnceWhoeverDropsIt) {
  using Owned = FTTypedMsg<700, std::shared_ptr<const int>>;
  const auto seven = std::make_shared<const int>(7);
  {
    CrankedQueue queue;  // its handler takes nothing out
    queue.Post("", 1, Owned::Make(seven));
    EXPECT_EQ(queue.Cycle(), IdList{700});
    EXPECT_EQ(seven.use_count(), 1);
    queue.Post("", 1, Owned::Make(seven));
    FTMsg msg = Owned::Make(seven);
    msg = Owned::Make(seven);
    EXPECT_EQ(seven.use_count(), 3);
  }
  EXPECT_EQ(seven.use_count(), 1);
}

constexpr std::int32_t kFull = 12500000;  // bytes that make a batch

struct Package {
  char name;
  std::int32_t priority;
  std::int32_t size = 10;  // 1: copied
};

// The names in all the batches that it takes to empty the queue, each batch ended by a stroke.
std::string Batches(CFTSendQueue* queue, const std::vector<Package>& packages) {
  std::deque<CFTBuffer> buffers;
  for (const Package& package : packages) {
    const platform::ConstBytePiece name{&package.name, 1};
    if (package.size == 1) {
      queue->AppendCopy(package.priority, &name, 1, 1);
      continue;
    }
    CFTBuffer& buffer = buffers.emplace_back(static_cast<std::uint32_t>(package.size));
    *buffer.GetWritePos() = static_cast<unsigned char>(package.name);
    buffer.CommitWrite(package.size);
    queue->Append(package.priority, {&buffer, nullptr});
  }
  std::string batches;
  while (!queue->IsEmpty()) {
    std::deque<FTSendItem> batch;
    queue->TakeBatch(&batch);
    if (batch.empty()) return batches + "nothing";
    for (const FTSendItem& item : batch) {
      const auto* const data = reinterpret_cast<const char*>(item.buffer->GetData());
      const bool chunk = item.release != nullptr;
      batches.append(data, chunk ? static_cast<std::size_t>(item.buffer->GetDataLen()) : 1);
      item.Release();
    }
    batches += '|';
  }
  return batches;
}

TEST(SendQueue, BatchesFollowThePrioritiesAndTheLimit) {
  const std::tuple<const char*, std::vector<Package>, const char*> cases[] = {
      {"the limit itself fills a batch", {{'a', 1, kFull}, {'b', 1}}, "a|b|"},
      {"one byte less does not", {{'a', 1, kFull - 1}, {'b', 2}, {'c', 2}}, "ab|c|"},
      {"copies keep their place", {{'a', 2, 1}, {'b', 2, 1}, {'C', 2}, {'d', 2, 1}}, "abCd|"},
      {"a package of a batch waits for higher priorities alone, and nothing overtakes it",
       {{'a', 1}, {'b', 2}, {'C', 2, kFull}, {'d', 2}, {'e', 3}},
       "ab|C|de|"},
      {"but not within the first priority", {{'a', 2}, {'B', 2, kFull}}, "aB|"},
  };
  for (const auto& [rule, packages, batches] : cases) {
    CFTSendQueue queue;
    EXPECT_EQ(Batches(&queue, packages), batches) << rule;
    EXPECT_EQ(Batches(&queue, {{'B', 5, kFull}}), "B|") << "empty priorities do not count";
  }
}

TEST(SendQueue, AChunkEndsWhereTheNextPackageDoesNotFit) {
  constexpr std::int32_t kThird = CFTSendQueue::kChunkBytes / 3 + 1;
  const std::string package(kThird, 'x');
  const platform::ConstBytePiece piece{package.data(), kThird};
  CFTSendQueue queue;
  for (int i = 0; i < 3; ++i) queue.AppendCopy(1, &piece, 1, kThird);
  std::deque<FTSendItem> batch;
  queue.TakeBatch(&batch);
  std::vector<std::int32_t> lengths;
  for (const FTSendItem& item : batch) {
    lengths.push_back(item.buffer->GetDataLen());
    item.Release();
  }
  EXPECT_EQ(lengths, (std::vector{2 * kThird, kThird}));
}

TEST(ConnectSchedule, ReleasesALinkAfterAMonthAndRefusesAnIdTwice) {
  constexpr std::int32_t kMonth = 30 * 86400;  // more than DiffMs can tell
  CFTConnectSchedule schedule;
  EXPECT_EQ(schedule.Add(std::make_unique<FTLinkInfo>(), kMonth, {100, 500}), nullptr);
  EXPECT_NE(schedule.Add(std::make_unique<FTLinkInfo>(), 0, {100, 500}), nullptr);
  for (const auto& [now, started] : {std::pair(FTTime{100 + kMonth, 499}, 0),
                                     {FTTime{99 + kMonth, 1500}, 1},  // may exceed 999
                                     {FTTime{100 + kMonth, 500}, 0}}) {
    int count = 0;
    schedule.StartDue(now, [&](std::unique_ptr<FTLinkInfo>) { ++count; });
    EXPECT_EQ(count, started);
  }
}

}  // namespace
