// Windows of our own, for systems that have none.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "client/ftwindow.h"
#include "platform/message_window.h"
#include "platform/platform.h"
#include "tests/support/posix/faults.h"
#include "tests/support/process_usage.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/wait_until.h"

using namespace testkit;
using namespace std::chrono_literals;
using namespace platform;

using std::chrono::steady_clock;

namespace {

constexpr int kNoLimit = -1;

// Destroyed at the end of the test.
class Window {
 public:
  ~Window() { Destroy(); }

  const std::uint32_t m_number = CreateMessageWindow();
  WindowMessage m_taken{};

  bool Destroy() { return DestroyMessageWindow(m_number); }
  bool Post(std::uintptr_t w_param, DiscardFunction discard = nullptr) {
    return PostToWindow(m_number, 1, w_param, -static_cast<std::intptr_t>(w_param), discard);
  }
  bool Take() { return WaitWindowMessage(m_number, &m_taken, 0) == WindowWait::kTaken; }
};

bool IsReadable(int descriptor, int timeout_ms = 0) {
  pollfd poll_for{descriptor, POLLIN, 0};
  return poll(&poll_for, 1, timeout_ms) == 1 && (poll_for.revents & POLLIN) != 0;
}

}  // namespace

TEST(MessageWindow, WaitEndsWithItsLimitAndNotBefore) {
  Window window;
  for (const int limit : {0, 1, 1995}) {
    const auto start = steady_clock::now();
    EXPECT_EQ(WaitWindowMessage(window.m_number, &window.m_taken, limit), WindowWait::kTimeOut);
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(limit));
  }
}

TEST(MessageWindow, DescriptorIsReadableWhileMessagesWaitAndAtTheEnd) {
  Window window;
  window.Post(1);
  window.Post(1);
  const int descriptor = GetWindowDescriptor(window.m_number);
  for (int left = 2; left > 0; --left) {
    EXPECT_TRUE(IsReadable(descriptor)) << left << " messages left";
    EXPECT_TRUE(window.Take());
  }
  EXPECT_FALSE(IsReadable(descriptor));
  EXPECT_FALSE(window.Take());
  const int held = dup(descriptor);  // as a poll that is under way keeps it open
  window.Destroy();
  EXPECT_TRUE(IsReadable(held)) << "the poll goes on";
  close(held);
}

// A host that waits in poll and takes until nothing is left must see every message.
TEST(MessageWindow, ServesAPollingLoopInTheOrderOfEachPoster) {
  constexpr std::uintptr_t kEach = 5000;
  Window window;
  const int descriptor = GetWindowDescriptor(window.m_number);
  std::thread posters([&] {
    RunOnThreads(4, [&](int poster) {
      const auto first = static_cast<std::uintptr_t>(poster) * kEach;
      for (std::uintptr_t i = 0; i < kEach; ++i) window.Post(first + i);
    });
  });
  std::uintptr_t next[4] = {};
  std::uintptr_t taken = 0;
  while (taken < 4 * kEach && IsReadable(descriptor, 20000)) {
    for (; window.Take(); ++taken) {
      EXPECT_EQ(window.m_taken.w_param % kEach, next[window.m_taken.w_param / kEach]++);
      EXPECT_EQ(window.m_taken.l_param, -static_cast<std::intptr_t>(window.m_taken.w_param));
    }
  }
  posters.join();
  EXPECT_EQ(taken, 4 * kEach);
}

// What is discarded goes to another window: a discard function may use windows.
TEST(MessageWindow, DestroyDiscardsWhatNobodyTook) {
  static Window* discarded;
  Window others;
  discarded = &others;
  const auto discard = [](std::uintptr_t w_param) { EXPECT_TRUE(discarded->Post(w_param)); };
  Window window;
  for (std::uintptr_t i = 1; i <= 4; ++i) window.Post(i, i == 3 ? nullptr : +discard);
  EXPECT_TRUE(window.Take());
  EXPECT_TRUE(window.Destroy());
  EXPECT_FALSE(window.Post(5, discard)) << "what could not be posted still is the poster's";
  for (const std::uintptr_t w_param : {2U, 4U}) {
    EXPECT_TRUE(others.Take());
    EXPECT_EQ(others.m_taken.w_param, w_param);
  }
  EXPECT_FALSE(others.Take());
}

// Every message posted with success is taken once or discarded, and no waiter stays behind.
TEST(MessageWindow, DestroyLosesNothingWhileOthersWaitAndPost) {
  static std::atomic<int> discarded;
  for (int round = 0; round < 200; ++round) {
    const bool flood = round % 2 == 0;
    discarded = 0;
    std::atomic<int> posted{0};
    std::atomic<int> taken{0};
    Window window;
    const auto post_some = [&] {
      const auto discard = [](std::uintptr_t) { ++discarded; };
      while ((flood || posted < round) && window.Post(1, discard)) ++posted;
    };
    const auto take_all = [&](int limit) {
      WindowMessage message{};
      WindowWait result;
      while ((result = WaitWindowMessage(window.m_number, &message, limit)) == WindowWait::kTaken) {
        ++taken;
      }
      EXPECT_EQ(result, WindowWait::kNoWindow) << "a message that another took ends no wait";
    };
    std::thread others([&] {
      RunOnThreads(5, [&](int i) { i < 2 ? post_some() : take_all(i == 2 ? 600000 : kNoLimit); });
    });
    EXPECT_TRUE(WaitUntil([&] { return taken >= round; }, 10s));
    window.Destroy();
    others.join();
    ASSERT_EQ(taken + discarded, posted);
  }
}

TEST(MessageWindow, EachMessageEndsTheWaitOfAnotherThread) {
  for (int round = 0; round < 300; ++round) {
    Window window;
    RunOnThreads(3, [&](int i) {
      WindowMessage message{};
      const bool done =
          i == 2 ? window.Post(1) && window.Post(2)
                 : WaitWindowMessage(window.m_number, &message, 5000) == WindowWait::kTaken;
      EXPECT_TRUE(done) << i;
    });
    ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round;
  }
}

TEST(MessageWindow, GivesItsDescriptorBack) {
  { const Window first; }  // whatever is made only once is made
  const HeldResources held;
  {
    const DescriptorLimit none(0);
    EXPECT_EQ(CreateMessageWindow(), 0U);
  }
  for (int i = 0; i < 100; ++i) Window().Post(1);
  EXPECT_TRUE(held.AreRestored(5s)) << held.Difference();
}

TEST(HostWindow, NobodyWaitsOnWindowsThatAreGone) {
  const unsigned int window = FTCreateWindow();
  FTWindowMsg message{};
  EXPECT_EQ(FTWaitMessage(window, &message, 0), 0);
  EXPECT_EQ(FTWaitMessage(window, nullptr, 0), -1);
  EXPECT_GE(FTGetWindowFd(window), 0);
  EXPECT_EQ(FTDestroyWindow(window), 0);
  EXPECT_EQ(FTDestroyWindow(window), -1);
  EXPECT_EQ(FTWaitMessage(window, &message, -1), -1);
  EXPECT_EQ(FTGetWindowFd(window), -1);
}
