// Stopping at any moment: the join ends, and nothing is left behind.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/answering_server.h"
#include "tests/support/dead_ports.h"
#include "tests/support/fast_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

// A stop that does not end cannot be survived: its threads hold what the test would destroy.
void StopOrDie(TestProtocol& protocol) {
  auto stopped = std::async(std::launch::async, [&] { protocol.Stop(); });
  if (stopped.wait_for(20s) == std::future_status::ready) return;
  std::fprintf(stderr, "the protocol's thread does not end\n");
  std::abort();
}

void RandomPause(std::mt19937& random, unsigned at_most_us) {
  std::this_thread::sleep_for(std::chrono::microseconds(random() % at_most_us));
}

class GivesEverythingBack : public testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(m_before.AreRestored(10s)) << m_before.Difference(); }

  const HeldResources m_before;
};

// A stop takes up to 1.6 s, nearly all of it waiting: many of them wait side by side.
class Shutdown : public GivesEverythingBack, public testing::WithParamInterface<int> {
 protected:
  template <typename Round>
  void RunSideBySide(int threads, int rounds, const Round& round) const {
    RunOnThreads(threads, [&](int i) {
      std::mt19937 random(static_cast<std::uint32_t>(100 * GetParam() + i));
      for (int k = 0; k < rounds; ++k) round(random);
    });
  }
};

TEST_P(Shutdown, BeforeTheStartAndRightAfterIt) {
  RunSideBySide(8, 4, [](std::mt19937& random) {
    TestProtocol protocol;
    protocol.PostMsg(1, "", 1);
    if (random() % 8 == 0) return;
    ASSERT_EQ(protocol.StartThread(0), 0);
    if (random() % 4 != 0) RandomPause(random, 3000);
    if (random() % 2 == 0) protocol.StopThread();
    StopOrDie(protocol);
  });
}

// What the links are doing when the stop comes depends on the pause alone: at the fast pace they
// also time out and are reaped.
TEST_P(Shutdown, WhileLinksComeWorkAndGo) {
  const FastClock pace(GetParam() % 2 == 0 ? 1 : 20);
  EchoServer echo;
  const FullBacklogPort mute;
  RunSideBySide(6, 2, [&](std::mt19937& random) {
    TestProtocol protocol(random() % 2 == 0 ? EventMode::kByMessage : EventMode::kDirect);
    protocol.Start();
    std::vector<std::string> ids;
    for (int i = 0; i < 3; ++i) ids.push_back(protocol.Connect(echo.Host(), echo.Port()));
    protocol.Connect(mute.Host(), mute.Port());
    protocol.Connect(mute.Host(), mute.Port(), 0, 0, nullptr, 0, 60);
    protocol.Listen("127.0.0.1", 0);
    RandomPause(random, 200000);
    for (const std::string& id : ids) {
      for (int i = 0; i < 20; ++i) protocol.Send(id, PatternBody(random() % 20000));
    }
    RandomPause(random, 20000);
    for (const std::string& id : ids) protocol.CloseLink(id, static_cast<int>(random() % 2));
    RandomPause(random, 900000);
    StopOrDie(protocol);
  });
}

INSTANTIATE_TEST_SUITE_P(Shares, Shutdown, testing::Range(0, 4));

enum class Callback { kPackage, kRoom, kHeartbeat, kClosed };

class BusyCallbacks : public GivesEverythingBack, public testing::WithParamInterface<Callback> {
 protected:
  // Stops a protocol while one of its link threads, which the engine joins, is in a callback that
  // goes on calling the interface until the stop is far advanced.
  static void StopInTheMidst(int number) {
    ScriptedServer server;
    Mailbox<int> in_callback;
    Mailbox<int> stopping;
    TestProtocol protocol(EventMode::kDirect);
    const auto keep_asking = [&](const FTLinkInfo& link) {
      in_callback.Push(1);
      while (!stopping.Count()) protocol.IsLinkUp(link.link_id);
      const auto end = steady_clock::now() + 1500ms;  // listener, connector and wait thread first
      while (steady_clock::now() < end) {
        protocol.IsLinkUp(link.link_id);
        protocol.Send(link.link_id, "late");
        protocol.CloseLink(link.link_id, 0);
        std::this_thread::sleep_for(1ms);
      }
    };
    TestProtocol::Hooks& on = protocol.On();
    if (GetParam() == Callback::kPackage) {
      on.received = [&](const FTLinkInfo& link, CFTBuffer*, std::int32_t*) { keep_asking(link); };
    }
    if (GetParam() == Callback::kRoom) on.space = keep_asking;
    if (GetParam() == Callback::kHeartbeat) on.heartbeat = keep_asking;
    if (GetParam() == Callback::kClosed) on.closed = keep_asking;
    protocol.Start();
    auto link = protocol.OpenLink(server);
    if (GetParam() == Callback::kPackage) link.peer.SendPackage("question");
    if (GetParam() == Callback::kClosed) link.peer.Close();
    ASSERT_TRUE(in_callback.WaitFor(1, 10s));
    std::this_thread::sleep_for(number * 7ms);
    stopping.Push(1);
    StopOrDie(protocol);
  }
};

TEST_P(BusyCallbacks, DoNotKeepAStopFromEnding) {
  const FastClock pace(GetParam() == Callback::kHeartbeat ? 20 : 1);
  RunOnThreads(8, &StopInTheMidst);
}

INSTANTIATE_TEST_SUITE_P(Each, BusyCallbacks,
                         testing::Values(Callback::kPackage, Callback::kRoom, Callback::kHeartbeat,
                                         Callback::kClosed));

using ShutdownLeftovers = GivesEverythingBack;

// Messages that the interface's thread never came to handle: packages, link records, reports.
TEST_F(ShutdownLeftovers, UnhandledEventsAreDroppedWithWhatTheyCarry) {
  ScriptedServer server;
  Mailbox<int> inside;
  Mailbox<int> leave;
  TestProtocol protocol;
  protocol.On().received = [&](const FTLinkInfo&, CFTBuffer*, std::int32_t*) {
    inside.Push(1);
    leave.WaitFor(1, 10s);
    protocol.StopThread();
  };
  protocol.Start();
  auto link = protocol.OpenLink(server);
  auto other = protocol.OpenLink(server);
  link.peer.SendPackage("the one that stops everything");
  ASSERT_TRUE(inside.WaitFor(1, 10s));
  auto& undelivered = protocol.State().undelivered_recv_bytes;
  const auto all_read = undelivered.Get() + 100 * static_cast<std::int64_t>(kHeaderSize + 1000);
  for (int i = 0; i < 100; ++i) link.peer.SendPackage(PatternBody(1000));
  ASSERT_TRUE(WaitUntil([&] { return undelivered.Get() == all_read; }, 10s));
  other.peer.Close();
  protocol.Connect(server.Host(), server.Port());
  protocol.Connect("0.0.0.0", 1);
  ASSERT_TRUE(WaitUntil([&] { return protocol.IsLinkUp(other.id) == 0; }, 10s));
  ASSERT_TRUE(WaitUntil([&] { return protocol.IsLinkUp("03000000") == 1; }, 10s));
  leave.Push(1);
  StopOrDie(protocol);
  EXPECT_EQ(inside.Count(), 1U);
}

}  // namespace
}  // namespace testkit
