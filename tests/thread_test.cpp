#include "00shcode/mytoolkit/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/mailbox.h"
#include "tests/support/process_usage.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/thread_limit.h"
#include "tests/support/wait_until.h"

using namespace testkit;
using namespace std::chrono_literals;

using std::chrono::steady_clock;

namespace {

// A worker that ignores stop requests gives up after so many passes, so that no test hangs.
constexpr int kTooManyPasses = 100000000;

using Steps = std::vector<std::string>;

class Worker : public CMyThread {
 public:
  using CMyThread::IsOwnThread;

  Mailbox<std::string> m_steps;  // what ran on the worker; passes only once
  std::atomic<int> m_passes{0};
  std::int32_t m_enter_result = 0;
  std::string m_halt_at;  // the step that lasts until m_go holds something
  Mailbox<int> m_go;

  void StopAndJoin() {
    StopThread();
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
    if (m_passes >= kTooManyPasses) StopThread();
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
  worker.m_go.Push(1);
  ASSERT_TRUE(worker.m_steps.WaitFor(3, 10s));
  EXPECT_EQ(CMyThread::GetThreadCount(), before + 1);
  worker.WaitThreadExit();
  worker.WaitThreadExit();
  EXPECT_EQ(CMyThread::GetThreadCount(), before) << "a second join does nothing";
  EXPECT_EQ(worker.m_passes, 1);
  EXPECT_EQ(worker.m_steps.All(), (Steps{"enter", "pass", "exit"}));
  EXPECT_FALSE(worker.IsOwnThread());
}

TEST(ThreadStop, BeforeTheWorkerHasEnteredIsKept) {
  Worker worker;
  worker.m_halt_at = "enter";
  ASSERT_EQ(worker.StartThread(0), 0);
  worker.StopThread();
  worker.m_go.Push(1);
  worker.WaitThreadExit();
  EXPECT_EQ(worker.m_steps.All(), (Steps{"enter", "exit"}));
}

TEST(ThreadStop, AtAnyMomentEndsTheThread) {
  const std::int32_t before = CMyThread::GetThreadCount();
  RunOnThreads(4, [](int owner) {
    for (int round = 0; round < 500; ++round) {
      Worker worker;
      ASSERT_EQ(worker.StartThread(0), 0);
      const auto moment = steady_clock::now() + std::chrono::microseconds((round + owner) % 60);
      while (steady_clock::now() < moment) continue;
      worker.StopAndJoin();
      ASSERT_LT(worker.m_passes, kTooManyPasses) << "the request was lost in round " << round;
    }
  });
  EXPECT_EQ(CMyThread::GetThreadCount(), before);
}

TEST(ThreadStart, ForgetsOlderStopsAndFailures) {
  const std::int32_t before = CMyThread::GetThreadCount();
  const HeldResources held;
  Worker worker;
  worker.StopThread();
  {
    const ThreadLimit none(0);
    EXPECT_EQ(worker.StartThread(0), -1);
  }
  worker.WaitThreadExit();
  EXPECT_EQ(CMyThread::GetThreadCount(), before);
  for (const char* const round : {"first", "second"}) {
    const int passes = worker.m_passes;
    ASSERT_EQ(worker.StartThread(256 * 1024), 0);
    EXPECT_TRUE(WaitUntil([&] { return worker.m_passes > passes; }, 10s)) << round << " start";
    worker.StopAndJoin();
  }
  EXPECT_TRUE(held.AreRestored(5s)) << held.Difference();
}

TEST(ThreadEnter, FailureEndsTheThreadBeforeItsLoop) {
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
