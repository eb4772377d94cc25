// Threads, their locks and their log lines.
#include "00shcode/mytoolkit/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>

#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/rw_lock.h"
#include "tests/support/process.h"
#include "tests/support/stderr_capture.h"

using namespace testkit;

namespace {

using Steps = std::vector<std::string>;

struct Worker : CMyThread {
  std::int32_t OnEnterThread() override {
    Take("enter");
    return CMyThread::OnEnterThread();
  }
  std::int32_t RunOnce() override {
    Take("pass");
    return -1;  // not looked at
  }
  void OnExitThread() override {
    Take("exit");
    CMyThread::OnExitThread();
  }
  void Take(const std::string& step) {
    EXPECT_EQ(GetThreadId(), platform::CurrentThreadId());
    m_steps.Push(step);
    if (step == m_halt_at) m_go.Take(20s);
  }

  Mailbox<std::string> m_steps;
  std::string m_halt_at;  // the step that lasts until the test lets go
  Mailbox<int> m_go;
};

TEST(Thread, KeepsStopsOfThisStartAloneAndCountsUntilItIsJoined) {
  const HeldResources held;
  const std::int32_t before = CMyThread::GetThreadCount();
  Worker worker;
  Steps expected;
  const Steps starts[] = {{"enter", "pass"}, {"enter"}, {"enter", "pass"}};
  for (const Steps& steps : starts) {
    worker.m_halt_at = steps.back();
    expected.insert(expected.end(), steps.begin(), steps.end());
    ASSERT_EQ(worker.StartThread(256 * 1024), 0);
    EXPECT_TRUE(worker.m_steps.WaitFor(expected.size(), 10s));
    EXPECT_EQ(worker.IsRunning(), steps.size() - 1);
    worker.StopThread();
    EXPECT_EQ(worker.IsRunning(), 0);
    EXPECT_EQ(CMyThread::GetThreadCount(), before + 1);
    worker.m_go.Push(1);
    for (int joins = 0; joins < 2; ++joins) worker.WaitThreadExit();
    EXPECT_EQ(CMyThread::GetThreadCount(), before);
    expected.push_back("exit");
    EXPECT_EQ(worker.m_steps.All(), expected) << "the step under way was finished";
  }
  EXPECT_TRUE(held.AreRestored(5s)) << held.Difference();
}

#ifndef NDEBUG
TEST(ThreadDeathTest, AThreadIsNeitherLostNorLeftRunning) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto start = [](int times) {
    CMyThread worker;
    for (; times > 0; --times) worker.StartThread(0);
  };
  EXPECT_DEATH(start(2), "m_thread_handle");
  EXPECT_DEATH(start(1), "m_thread_handle");
}
#endif

TEST(Lock, AdmitsOneThreadInAnyModeUntilReleasedAsOftenAsTaken) {
  CFTRwLock lock;
  std::atomic<int> inside{0};
  RunOnThreads(4, [&](int thread) FT_UNCHECKED {
    const std::int32_t mode = thread % 2 == 0 ? CFTRwLock::kRead : CFTRwLock::kWrite;
    for (int i = 0; i < 1000; ++i) {
      const CFTAutoLock no_lock(nullptr, mode);
      const CFTAutoLock outer(&lock, mode);
      { const CFTAutoLock inner(&lock, mode); }
      EXPECT_EQ(inside++, 0);
      std::this_thread::yield();
      --inside;
    }
  });
}

TEST(Event, KeepsAtMostOneSignalAndIsNeverShortOfItsTime) {
  CFTLock lock;
  CFTEvent event;
  const CFTScopedLock guard(&lock);
  for (int i = 0; i < 2; ++i) event.Set();
  EXPECT_EQ(event.WaitUnlocked(&lock, 0), 0);
  for (const std::uint32_t milliseconds : {0U, 1U, 1995U}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event.WaitUnlocked(&lock, milliseconds), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(milliseconds));
  }
}

constexpr std::int64_t kSeconds = 946684798;  // two before the year 2000 in UTC

void UseTimeZone(const char* zone) {
  SetVariable("TZ", zone);
  tzset();
}

std::string WithStampsOfNowCut(std::string text) {
  std::size_t at;
  while ((at = text.find("<20")) != std::string::npos) text.replace(at, 20, "<now");
  return text;
}

TEST(Log, LinesHaveTheirFieldsInPlaceUpToTheThreshold) {
  CMyThread log;
  const StderrCapture err;
  UseTimeZone("UTC0");
  log.WriteLogEx(kSeconds, 89, "src/file.cpp", 73, "tag", 0, 0, "%s %d\n", "text", 5);
  log.WriteLogEx(kSeconds, 7, "c:\\src\\exactly12.cp", 1, nullptr, -2, -1, "no line end");
  UseTimeZone("WST+01:00");
  log.WriteLogEx(kSeconds, 999, "src/thirteen_.cpp", 123456, "", -12, 10054, "|%%|\n");
  log.WriteLogEx(kSeconds, 0, "dir/", 1, "", 0, 0, "\n");
  for (const std::int32_t code : {-7, 0, 1, 11}) {
    log.WriteLog("a/b.cpp", 5, code, "%d\n", code);
    log.WriteLogEx(0, 89, "a/b.cpp", 5, "full", code, 0, "%d\n", code);
  }
  EXPECT_EQ(WithStampsOfNowCut(err.Text()),
            "<19991231 235958.089,    file.cpp,73, 0,tag>0: text 5\n"
            "<19991231 235958.007,exactly12.cp,1,-2,>-1: no line end"
            "<19991231 225958.999,thirteen_.cp,123456,-12,>10054: |%|\n"
            "<now,            ,1, 0,>0: \n"
            "<now,       b.cpp,5,-2,>-7: -7\n"
            "<now,       b.cpp,5,-7,full>0: -7\n"
            "<now,       b.cpp,5, 0,>0: 0\n"
            "<now,       b.cpp,5, 0,full>0: 0\n");
}

TEST(LocalTime, SundayIsTheSeventhDayOfTheWeek) {
  UseTimeZone("UTC0");
  for (int day = 5; day <= 7; ++day) {  // from a Friday on
    int weekday = 0;
    ft::SplitLocalTime(kSeconds + (day - 5) * 86400, nullptr, nullptr, nullptr, nullptr, nullptr,
                       nullptr, &weekday);
    EXPECT_EQ(weekday, day);
  }
}

}  // namespace
