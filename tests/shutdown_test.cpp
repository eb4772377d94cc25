// Stopping at any moment: the join ends, and nothing is left behind.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/answering_server.h"
#include "tests/support/dead_ports.h"
#include "tests/support/fast_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = LinkEvent::Kind;

constexpr auto kPatience = 20s;

// A stop that does not end cannot be survived: its threads hold what the test would destroy.
void StopOrDie(TestProtocol& protocol) {
  auto stopped = std::async(std::launch::async, [&] { protocol.Stop(); });
  if (stopped.wait_for(kPatience) == std::future_status::ready) return;
  std::fprintf(stderr, "the protocol's thread does not end\n");
  std::abort();
}

void RandomPause(std::mt19937& random, unsigned at_most_us) {
  std::this_thread::sleep_for(std::chrono::microseconds(random() % at_most_us));
}

// A stop takes up to 1.6 s, nearly all of it waiting: many of them wait side by side.
class Shutdown : public testing::TestWithParam<int> {
 protected:
  using Round = std::function<void(std::mt19937&)>;

  void RunSideBySide(int threads, int rounds, const Round& round) const {
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i) {
      running.emplace_back([=] {
        std::mt19937 random(static_cast<std::uint32_t>(100 * GetParam() + i));
        for (int k = 0; k < rounds; ++k) round(random);
      });
    }
    for (std::thread& thread : running) thread.join();
  }

  void TearDown() override { EXPECT_TRUE(m_before.AreRestored(10s)) << m_before.Difference(); }

  const HeldResources m_before;
};

TEST_P(Shutdown, RightAfterTheStart) {
  RunSideBySide(8, 4, [](std::mt19937& random) {
    TestProtocol protocol;
    ASSERT_EQ(protocol.StartThread(0), 0);
    if (random() % 4 != 0) RandomPause(random, 3000);
    if (random() % 2 == 0) protocol.StopThread();
    StopOrDie(protocol);
  });
}

// What the links are doing when the stop comes depends on the pause alone.
TEST_P(Shutdown, WhileLinksComeWorkAndGo) {
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
    RandomPause(random, 600000);
    StopOrDie(protocol);
  });
}

TEST_P(Shutdown, WhileFinishedLinksAreReaped) {
  const FastClock fast(20);
  EchoServer echo;
  RunSideBySide(4, 2, [&](std::mt19937& random) {
    TestProtocol protocol;
    protocol.Start();
    for (int i = 0; i < 4; ++i) protocol.Connect(echo.Host(), echo.Port());
    for (int i = 0; i < 4; ++i) {
      const auto connected = protocol.WaitFor(Kind::kConnected);
      ASSERT_TRUE(connected);
      protocol.CloseLink(connected->link.link_id, 0);
      RandomPause(random, 200000);
    }
    RandomPause(random, 500000);
    StopOrDie(protocol);
  });
}

INSTANTIATE_TEST_SUITE_P(Shares, Shutdown, testing::Range(0, 3));

// Link threads that are just calling the interface while the engine joins them. Each callback goes
// on asking until the stop is far advanced.
class ShutdownWithBusyCallbacks : public Shutdown {
 protected:
  struct Busy {
    explicit Busy(HeartbeatMode heartbeats = HeartbeatMode::kOnSendThread)
        : protocol(EventMode::kDirect, heartbeats) {}

    // The callback's part.
    void KeepAsking(const FTLinkInfo& link) {
      in_callback.Push(1);
      while (!stopping.Count()) protocol.IsLinkUp(link.link_id);
      const auto end = steady_clock::now() + 1500ms;  // listener, connector and wait thread first
      while (steady_clock::now() < end) {
        protocol.IsLinkUp(link.link_id);
        protocol.Send(link.link_id, "late");
        protocol.CloseLink(link.link_id, 0);
        std::this_thread::sleep_for(1ms);
      }
    }

    // The test's part.
    void StopInTheMidst(std::mt19937& random) {
      ASSERT_TRUE(in_callback.WaitFor(1, 10s));
      RandomPause(random, 50000);
      stopping.Push(1);
      StopOrDie(protocol);
    }

    Mailbox<int> in_callback;
    Mailbox<int> stopping;
    TestProtocol protocol;
  };
};

TEST_P(ShutdownWithBusyCallbacks, OfPackages) {
  RunSideBySide(8, 1, [](std::mt19937& random) {
    ScriptedServer server;
    Busy busy;
    busy.protocol.On().received = [&](const FTLinkInfo& link, CFTBuffer*, std::int32_t*) {
      busy.KeepAsking(link);
    };
    busy.protocol.Start();
    auto link = busy.protocol.OpenLink(server);
    link.peer.SendPackage("question");
    busy.StopInTheMidst(random);
  });
}

TEST_P(ShutdownWithBusyCallbacks, OfRoom) {
  RunSideBySide(8, 1, [](std::mt19937& random) {
    ScriptedServer server;
    Busy busy;
    busy.protocol.On().space = [&](const FTLinkInfo& link) { busy.KeepAsking(link); };
    busy.protocol.Start();
    auto link = busy.protocol.OpenLink(server);
    busy.StopInTheMidst(random);
  });
}

TEST_P(ShutdownWithBusyCallbacks, OfHeartbeats) {
  const FastClock fast(20);
  RunSideBySide(8, 1, [](std::mt19937& random) {
    ScriptedServer server;
    Busy busy;
    busy.protocol.On().heartbeat = [&](const FTLinkInfo& link) { busy.KeepAsking(link); };
    busy.protocol.Start();
    auto link = busy.protocol.OpenLink(server);
    busy.StopInTheMidst(random);
  });
}

TEST_P(ShutdownWithBusyCallbacks, OfClosedLinks) {
  RunSideBySide(8, 1, [](std::mt19937& random) {
    ScriptedServer server;
    Busy busy;
    busy.protocol.On().closed = [&](const FTLinkInfo& link) { busy.KeepAsking(link); };
    busy.protocol.Start();
    auto link = busy.protocol.OpenLink(server);
    link.peer.Close();
    busy.StopInTheMidst(random);
  });
}

INSTANTIATE_TEST_SUITE_P(Shares, ShutdownWithBusyCallbacks, testing::Range(0, 2));

// Messages that the interface's thread never came to handle: packages, link records, reports.
TEST(ShutdownLeftovers, UnhandledEventsAreDroppedWithWhatTheyCarry) {
  const HeldResources before;
  {
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
    const auto in_hand = undelivered.Get();
    for (int i = 0; i < 100; ++i) link.peer.SendPackage(PatternBody(1000));
    const auto all_read = in_hand + 100 * static_cast<std::int64_t>(kHeaderSize + 1000);
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
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

TEST(ShutdownLeftovers, AnInterfaceThatWasNeverStartedGoesWithoutATrace) {
  const HeldResources before;
  {
    TestProtocol never_started;
    never_started.PostMsg(1, "", 1);
  }
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

}  // namespace
}  // namespace testkit
