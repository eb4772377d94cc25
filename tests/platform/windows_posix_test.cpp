// Windows of our own, for systems that have none.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include "client/ftwindow.h"
#include "platform/message_window.h"
#include "tests/support/posix/faults.h"
#include "tests/support/process.h"

namespace {

using namespace testkit;
using namespace platform;

// Destroyed at the end of the test.
struct Window {
  ~Window() { Destroy(); }
  bool Destroy() { return DestroyMessageWindow(m_number); }
  bool Post(std::uintptr_t w_param, DiscardFunction discard = nullptr) {
    const WindowPost post{1, w_param, 0};
    return PostToWindow(m_number, &post, 1, discard).posted == 1;
  }
  bool Take() { return WaitWindowMessage(m_number, &m_taken, 0) == WindowWait::kTaken; }
  const std::uint32_t m_number = CreateMessageWindow();
  WindowMessage m_taken{};
};

bool IsReadable(int descriptor, int timeout_ms = 0) {
  pollfd poll_for{descriptor, POLLIN, 0};
  return poll(&poll_for, 1, timeout_ms) == 1 && (poll_for.revents & POLLIN) != 0;
}

// A host that waits in poll must see every message, and the end.
TEST(MessageWindow, ServesAPollingLoopInOrder) {
  constexpr std::uintptr_t kAll = 20000;
  Window window;
  window.Post(0);
  const int descriptor = GetWindowDescriptor(window.m_number);
  std::thread poster([&] {
    for (std::uintptr_t i = 1; i < kAll; ++i) {
      while (!window.Post(i)) std::this_thread::yield();  // full: it takes 10,000
    }
  });
  std::uintptr_t taken = 0;
  while (taken < kAll && IsReadable(descriptor, 20000) && window.Take()) {
    EXPECT_EQ(window.m_taken.w_param, taken++);
  }
  poster.join();
  EXPECT_EQ(taken, kAll);
  EXPECT_FALSE(IsReadable(descriptor));
  const int held = dup(descriptor);  // as a poll that is under way keeps it open
  window.Destroy();
  EXPECT_TRUE(IsReadable(held)) << "the poll goes on";
  close(held);
}

// Every message posted with success is taken once or discarded, and no waiter stays behind. What
// discards may use windows.
TEST(MessageWindow, DestroyLosesNothingWhileOthersWaitAndPost) {
  static std::atomic<int> discarded;
  for (int round = 0; round < 200; ++round) {
    const bool flood = round % 2 == 0;
    discarded = 0;
    std::atomic<int> posted{0};
    std::atomic<int> taken{0};
    Window window;
    const auto post_some = [&] {
      const auto discard = [](std::uintptr_t) { discarded += GetWindowDescriptor(0) < 0 ? 1 : 0; };
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
      RunOnThreads(5, [&](int i) { i < 2 ? post_some() : take_all(i == 2 ? 600000 : -1); });
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
    std::atomic<int> done{0};
    RunOnThreads(3, [&](int i) {
      WindowMessage message{};
      done += i == 2 ? window.Post(1) && window.Post(2)
                     : WaitWindowMessage(window.m_number, &message, 5000) == WindowWait::kTaken;
    });
    ASSERT_EQ(done, 3) << "round " << round;
  }
}

TEST(MessageWindow, AWaitWithoutLimitOutlastsSignals) {
  struct sigaction handling {};  // calls are not taken up again by themselves
  handling.sa_handler = [](int) {};
  struct sigaction before {};
  sigaction(SIGUSR1, &handling, &before);
  Window window;
  WindowMessage message{};
  auto result = WindowWait::kNoWindow;
  std::thread waiter([&] { result = WaitWindowMessage(window.m_number, &message, -1); });
  for (int i = 0; i < 1000; ++i) {
    pthread_kill(waiter.native_handle(), SIGUSR1);
    std::this_thread::yield();
  }
  window.Post(1);
  waiter.join();
  EXPECT_EQ(result, WindowWait::kTaken);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(HostWindow, GivesItsDescriptorBackAndNobodyWaitsOnceItIsGone) {
  { const Window first; }  // whatever is made only once is made
  const HeldResources held;
  {
    const DescriptorLimit none;
    EXPECT_EQ(FTCreateWindow(), 0U);
  }
  const unsigned int window = FTCreateWindow();
  FTWindowMsg message{};
  EXPECT_EQ(FTWaitMessage(window, &message, 0), 0);
  EXPECT_EQ(FTWaitMessage(window, nullptr, 0), -1);
  EXPECT_GE(FTGetWindowFd(window), 0);
  EXPECT_EQ(FTDestroyWindow(window), 0);
  EXPECT_EQ(FTDestroyWindow(window), -1);
  EXPECT_EQ(FTWaitMessage(window, &message, -1), -1);
  EXPECT_EQ(FTGetWindowFd(window), -1);
  EXPECT_TRUE(held.AreRestored(5s)) << held.Difference();
}

}  // namespace
