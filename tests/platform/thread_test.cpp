#include "00shcode/mytoolkit/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/rw_lock.h"
#include "tests/support/mailbox.h"
#include "tests/support/process_usage.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/stderr_capture.h"

using namespace testkit;
using namespace std::chrono_literals;

namespace {

using Steps = std::vector<std::string>;

class Worker : public CMyThread {
 public:
  bool IsOwnThread() const { return GetThreadId() == platform::CurrentThreadId(); }

  Mailbox<std::string> m_steps;  // what ran on the worker; passes only once
  std::atomic<int> m_passes{0};
  std::int32_t m_enter_result = 0;
  std::string m_halt_at;  // the step that lasts until m_go holds something
  Mailbox<int> m_go;

  void LetGoAndJoin() {
    m_go.Push(1);
    WaitThreadExit();
  }

 protected:
  std::int32_t OnEnterThread() override {
    Take("enter");
    CMyThread::OnEnterThread();
    return m_enter_result;
  }
  std::int32_t RunOnce() override {
    if (m_passes++ == 0) Take("pass");
    return -1;  // not looked at
  }
  void OnExitThread() override {
    Take("exit");
    CMyThread::OnExitThread();
  }

 private:
  void Take(const std::string& step) {
    m_steps.Push(IsOwnThread() ? step : step + " on another thread");
    if (step == m_halt_at) m_go.WaitFor(1, 20s);
  }
};

// Fails when two threads are inside at the same time.
struct Room {
  std::atomic<int> m_visitors{0};

  void Visit() {
    EXPECT_EQ(m_visitors.fetch_add(1), 0);
    std::this_thread::yield();
    m_visitors.fetch_sub(1);
  }
};

}  // namespace

TEST(Thread, FinishesThePassUnderWayAndCountsUntilItIsJoined) {
  const std::int32_t before = CMyThread::GetThreadCount();
  Worker worker;
  worker.m_halt_at = "pass";
  EXPECT_TRUE(worker.IsOwnThread());
  ASSERT_EQ(worker.StartThread(0), 0);
  ASSERT_TRUE(worker.m_steps.WaitFor(2, 10s));
  EXPECT_EQ(worker.IsRunning(), 1);
  worker.StopThread();
  EXPECT_EQ(worker.IsRunning(), 0);
  EXPECT_EQ(CMyThread::GetThreadCount(), before + 1);
  worker.LetGoAndJoin();
  worker.WaitThreadExit();
  EXPECT_EQ(CMyThread::GetThreadCount(), before) << "a second join does nothing";
  EXPECT_EQ(worker.m_passes, 1);
  EXPECT_EQ(worker.m_steps.All(), (Steps{"enter", "pass", "exit"}));
  EXPECT_FALSE(worker.IsOwnThread());
}

TEST(Thread, KeepsAStopFromBeforeItHasEntered) {
  Worker worker;
  worker.m_halt_at = "enter";
  ASSERT_EQ(worker.StartThread(0), 0);
  worker.StopThread();
  worker.LetGoAndJoin();
  EXPECT_EQ(worker.m_steps.All(), (Steps{"enter", "exit"}));
}

TEST(Thread, ForgetsOlderStopsWhenItStarts) {
  const HeldResources held;
  Worker worker;
  for (std::size_t start = 0; start < 2; ++start) {
    worker.StopThread();
    worker.m_passes = 0;
    ASSERT_EQ(worker.StartThread(256 * 1024), 0);
    EXPECT_TRUE(worker.m_steps.WaitFor(3 * start + 2, 10s)) << "start " << start;
    worker.StopThread();
    worker.WaitThreadExit();
  }
  EXPECT_TRUE(held.AreRestored(5s)) << held.Difference();
}

TEST(Thread, EndsBeforeItsLoopWhenItCannotEnter) {
  Worker worker;
  worker.m_enter_result = -1;
  worker.SetThreadName("broken");
  const StderrCapture err;
  ASSERT_EQ(worker.StartThread(0), 0);
  worker.WaitThreadExit();
  EXPECT_EQ(worker.m_steps.All(), Steps{"enter"});
  const std::string line = "OnEnterThread[broken] return failed, will exit now.";
  EXPECT_EQ(err.LinesWith(",mytoolkit.cp,2945,-2,>-1: " + line).size(), 1U) << err.Text();
}

TEST(Lock, AdmitsOneThreadInAnyModeUntilReleasedAsOftenAsTaken) {
  CFTRwLock lock;
  Room room;
  RunOnThreads(4, [&](int thread) FT_UNCHECKED {
    const std::int32_t mode = thread % 2 == 0 ? CFTRwLock::kRead : CFTRwLock::kWrite;
    for (int i = 0; i < 1000; ++i) {
      const CFTAutoLock no_lock(nullptr, mode);
      const CFTAutoLock outer(&lock, mode);
      { const CFTAutoLock inner(&lock, mode); }
      room.Visit();
    }
  });
}

TEST(Event, KeepsAtMostOneSignalAndIsNeverShortOfItsTime) {
  CFTLock lock;
  CFTEvent event;
  const CFTScopedLock guard(&lock);
  event.Set();
  event.Set();
  EXPECT_EQ(event.WaitUnlocked(&lock, 0), 0);
  for (const std::uint32_t milliseconds : {0U, 1U, 1995U}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event.WaitUnlocked(&lock, milliseconds), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(milliseconds));
  }
}

// A lost wake-up leaves both sides waiting for ever, a lock not taken again lets them meet.
TEST(Event, HandsOverUnderTheLockWithoutLosingAWakeUp) {
  CFTLock lock;
  CFTEvent changed[2];
  Room room;
  int turn = 0;
  RunOnThreads(2, [&](int self) FT_UNCHECKED {
    const CFTScopedLock guard(&lock);
    for (int round = 0; round < 20000; ++round) {
      while (turn != self) changed[self].WaitUnlocked(&lock, 0xFFFFFFFFU);
      turn = 1 - self;
      changed[turn].Set();
      room.Visit();
    }
  });
}

// Debug builds alone look at it.
TEST(ThreadDeathTest, AThreadIsNeitherLostNorLeftRunning) {
#ifndef NDEBUG
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        CMyThread worker;
        worker.StartThread(0);
        worker.StartThread(0);
      },
      "m_thread_handle");
  EXPECT_DEATH(
      {
        CMyThread worker;
        worker.StartThread(0);
      },
      "m_thread_handle");
#else
  GTEST_SKIP() << "this build has no assertions";
#endif
}
