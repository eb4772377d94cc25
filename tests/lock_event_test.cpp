#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/rw_lock.h"
#include "tests/support/run_on_threads.h"

using namespace testkit;

namespace {

constexpr std::uint32_t kNoLimit = 0xFFFFFFFFU;

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

TEST(Lock, AdmitsOneThreadInAnyModeUntilReleasedAsOftenAsTaken) {
  CFTLock lock;
  CFTRwLock rw_lock;
  Room room;
  Room rw_room;
  RunOnThreads(4, [&](int thread) FT_UNCHECKED {
    const std::int32_t mode = thread % 2 == 0 ? CFTRwLock::kRead : CFTRwLock::kWrite;
    for (int i = 0; i < 1000; ++i) {
      const CFTAutoLock no_rw_lock(nullptr, mode);
      const CFTAutoLock rw_outer(&rw_lock, mode);
      { const CFTAutoLock rw_inner(&rw_lock, mode); }
      rw_room.Visit();
    }
    for (int i = 0; i < 1000; ++i) {
      const CFTScopedLock no_lock(nullptr);
      const CFTScopedLock outer(&lock);
      { const CFTScopedLock inner(&lock); }
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
  for (const std::uint32_t milliseconds : {0U, 1U, 1005U}) {
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
      while (turn != self) changed[self].WaitUnlocked(&lock, kNoLimit);
      turn = 1 - self;
      changed[turn].Set();
      room.Visit();
    }
  });
}
