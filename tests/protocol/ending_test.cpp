// How links and protocol objects end: on request, in time, and with nothing left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/answering_server.h"
#include "tests/support/dead_ports.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/release_counter.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/socket_traits.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = LinkEvent::Kind;

constexpr auto kAWhile = 300ms;  // for what must not happen

// The clock stands still, and no ended link is deleted, unless the test lets the time pass.
class Ending : public testing::Test {
 protected:
  void SetUp() override { m_protocol->StartAlone(); }

  void TearDown() override {
    m_protocol.reset();
    EXPECT_TRUE(m_before.AreRestored(10s)) << m_before.Difference();
  }

  void SendMuch(const std::string& link_id, std::int32_t priority) {
    m_protocol->SendPkg(link_id, NewBuffer(PatternBody(12000000)), &ReleaseCounter::Release,
                        FTSendMode::kWithinLimits, FTOnRefusal::kRelease, priority);
  }

  // A link that has ended and whose threads have, joined or not. The package that nobody reads is
  // released when the link is deleted, and so shows when that is.
  Peer FinishLink() {
    const std::size_t threads = CountThreads();
    auto link = m_protocol->OpenLink(m_slow);
    SendMuch(link.id, 1);
    link.peer.StopSending();
    EXPECT_EQ(m_protocol->WaitClosed(), FTCloseReason::kRecvFailed);
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() == threads; }, 10s));
    return std::move(link.peer);
  }

  const LinkEnd m_reset = EndOfResetLinks();
  ManualClock m_clock;
  ScriptedServer m_slow{4096};
  const HeldResources m_before;
  const ReleaseCounter m_released;
  std::unique_ptr<TestProtocol> m_protocol = std::make_unique<TestProtocol>();
};

TEST_F(Ending, ClosingALinkEndsItAtOnceWithALineTheReasonAndItsPackagesUnsent) {
  auto link = m_protocol->OpenLink(m_slow);
  for (int priority = 1; priority <= 5; ++priority) SendMuch(link.id, priority);
  EXPECT_EQ(m_protocol->IsLinkUp(link.id), 1);
  m_protocol->Close(link.id);
  m_protocol->Close(link.id);
  EXPECT_EQ(m_protocol->WaitClosed(), FTCloseReason::kOnRequest);
  EXPECT_EQ(m_protocol->IsLinkUp(link.id), 0);
  EXPECT_NE(link.peer.WaitClosed(10s), LinkEnd::kStillOpen);
  EXPECT_LT(m_released.Count(), 5);
  EXPECT_GE(m_protocol->State().queued_send_bytes, 5000000);
  const auto lines = m_protocol->LinesWith("Link down");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "Link down with[127.0.0.1]: I close it.\n");
  EXPECT_EQ(lines[0].source, "ftmtsockimpl.cpp");
  EXPECT_EQ(lines[0].line, 333);
  EXPECT_EQ(lines[0].level_code, -1);
  EXPECT_EQ(m_protocol->Events().Count(), 0U);
}

// On accepted links: closing one of our own connects resets it, and what the system has taken but
// not yet delivered is lost with it.
TEST_F(Ending, ClosingAfterSendingSendsEverythingFirst) {
  const Bytes large = PatternBody(30000000);  // more than the system takes from us
  std::uint16_t port = 0;
  ASSERT_EQ(m_protocol->Listen("127.0.0.1", 0, 0, 0, &port), "01000000");
  Peer peer = Peer::Connect(port, 10s);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kAccepted));
  const std::string id = "02000000";
  ASSERT_EQ(m_protocol->Send(id, large, 1), 0);
  ASSERT_EQ(m_protocol->Send(id, "second"), 0);
  m_protocol->CloseLink(id, FTCloseMode::kAfterSending);
  EXPECT_FALSE(WaitUntil([&] { return m_protocol->IsLinkUp(id) == 0; }, kAWhile));
  EXPECT_EQ(m_protocol->Send(id, "late"), 0) << "a link stays up until everything is sent";
  EXPECT_TRUE(peer.ReceiveExactly(kHeaderSize + large.size(), 20s) == BuildPackage(large));
  for (const char* body : {"second", "late"}) EXPECT_EQ(peer.ReceivePackage(10s), body);
  EXPECT_EQ(m_protocol->WaitClosed(), FTCloseReason::kOnRequest);
  EXPECT_EQ(peer.WaitClosed(10s), LinkEnd::kOrderly);
  const auto lines = m_protocol->LinesWith("Link down with[127.0.0.1]: I close it.\n");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].line, 2634);
  EXPECT_EQ(lines[0].level_code, -1);

  Peer idle = Peer::Connect(port, 10s);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kAccepted));
  const auto begin = steady_clock::now();
  m_protocol->CloseLink("03000000", FTCloseMode::kAfterSending);
  EXPECT_EQ(m_protocol->WaitClosed(), FTCloseReason::kOnRequest);
  EXPECT_LT(steady_clock::now() - begin, 400ms) << "an idle send thread is woken";
  EXPECT_EQ(idle.WaitClosed(10s), LinkEnd::kOrderly);
}

TEST_F(Ending, LinksAreDeletedMoreThan5SecondsAfterTheyFinished) {
  Peer peers[] = {FinishLink(), FinishLink(), FinishLink()};
  m_clock.Advance(5000);
  EXPECT_FALSE(WaitUntil([&] { return m_released.Count() > 0; }, kAWhile));
  EXPECT_GT(m_protocol->State().queued_send_bytes, 0);
  EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads + 3);
  m_clock.Advance(2001);
  EXPECT_TRUE(m_released.Reaches(3, 5s)) << m_released.Count();
  EXPECT_TRUE(m_protocol->CountersReturnToZero());
  EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads);
  for (Peer& peer : peers) EXPECT_EQ(peer.WaitClosed(10s), m_reset);
}

// Finished links are looked for every 5 seconds, and connects that are due after that.
TEST_F(Ending, TheWaitThreadsLinksAreDeletedWhenItEndsAllOthersWithTheEngine) {
  FinishLink();
  FinishLink();
  m_protocol->Connect(m_slow.Host(), m_slow.Port(), 0, 0, nullptr, 0, 5);
  m_clock.Advance(5000);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kConnected));
  EXPECT_EQ(m_released.Count(), 0);
  FinishLink();
  m_protocol->Stop();
  EXPECT_EQ(m_released.Count(), 2);
  m_protocol.reset();
  EXPECT_EQ(m_released.Count(), 3);
}

// A stop that does not end cannot be survived: its threads hold what the test would destroy.
void StopOrDie(TestProtocol& protocol) {
  auto stopped = std::async(std::launch::async, [&] { protocol.Stop(); });
  if (stopped.wait_for(20s) == std::future_status::ready) return;
  std::fprintf(stderr, "the protocol's thread does not end\n");
  std::abort();
}

class GivesEverythingBack : public testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(m_before.AreRestored(10s)) << m_before.Difference(); }

  const HeldResources m_before;
};

using Stop = GivesEverythingBack;

// Every thread sleeps somewhere else, and each of them half a second or longer if nobody wakes it.
TEST_F(Stop, WakesEveryThreadWhereverItWaits) {
  const FullBacklogPort mute;
  ScriptedServer slow(4096);
  std::vector<std::chrono::milliseconds> times;
  for (int round = 0; round < 5; ++round) {
    TestProtocol protocol;
    protocol.StartAlone();
    const auto idle = protocol.OpenLink(slow);
    const auto blocked = protocol.OpenLink(slow);
    auto throttled = protocol.OpenLink(slow);
    protocol.State().undelivered_recv_bytes += 800000000;
    throttled.peer.SendRaw("half a package");
    ASSERT_EQ(protocol.Send(blocked.id, PatternBody(12000000)), kSendQueued);
    protocol.Listen("127.0.0.1", 0);
    protocol.Connect(mute.Host(), mute.Port());
    std::this_thread::sleep_for(round * 70ms);  // so that they are at different places
    const auto begin = steady_clock::now();
    StopOrDie(protocol);
    times.push_back(
        std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - begin));
  }
  std::sort(times.begin(), times.end());
  EXPECT_LT(times[2], 200ms) << "the median of five";
}

// Many of them side by side, each round at random moments.
class Shutdown : public GivesEverythingBack, public testing::WithParamInterface<int> {
 protected:
  static void RandomPause(std::mt19937& random, unsigned at_most_us) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % at_most_us));
  }

  template <typename Round>
  void RunSideBySide(int threads, int rounds, const Round& round) const {
    RunOnThreads(threads, [&](int i) {
      std::mt19937 random(static_cast<std::uint32_t>(100 * GetParam() + i));
      for (int k = 0; k < rounds; ++k) round(random);
    });
  }
};

TEST_P(Shutdown, BeforeTheStartAndRightAfterIt) {
  RunSideBySide(8, 6, [](std::mt19937& random) {
    TestProtocol protocol;
    protocol.PostQuit();
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
  RunSideBySide(6, 3, [&](std::mt19937& random) {
    TestProtocol protocol(random() % 2 == 0 ? FTEventMode::kByMessage : FTEventMode::kDirect);
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
    for (const std::string& id : ids) {
      protocol.CloseLink(id, random() % 2 == 0 ? FTCloseMode::kNow : FTCloseMode::kAfterSending);
    }
    RandomPause(random, 500000);
    StopOrDie(protocol);
  });
}

INSTANTIATE_TEST_SUITE_P(Shares, Shutdown, testing::Range(0, 4));

enum class Callback { kPackage, kRoom, kHeartbeat, kClosed };

class BusyCallbacks : public GivesEverythingBack, public testing::WithParamInterface<Callback> {
 protected:
  // Stops a protocol while one of its link threads, which the engine joins, is in a callback that
  // goes on calling the protocol object until the stop is far advanced.
  static void StopInTheMidst(int number) {
    ScriptedServer server;
    Mailbox<int> in_callback;
    Mailbox<int> stopping;
    TestProtocol protocol(FTEventMode::kDirect);
    const auto keep_asking = [&](const FTLinkInfo& link) {
      in_callback.Push(1);
      while (!stopping.Count()) protocol.IsLinkUp(link.link_id);
      const auto end = steady_clock::now() + 300ms;  // listener, connector and wait thread first
      while (steady_clock::now() < end) {
        protocol.IsLinkUp(link.link_id);
        protocol.Send(link.link_id, "late");
        protocol.Close(link.link_id);
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

// Messages that the protocol's thread never came to handle: packages, link records, reports.
TEST_F(Stop, UnhandledEventsAreDroppedWithWhatTheyCarry) {
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
  const auto all_read = undelivered + 100 * static_cast<std::int64_t>(kHeaderSize + 1000);
  for (int i = 0; i < 100; ++i) link.peer.SendPackage(PatternBody(1000));
  ASSERT_TRUE(WaitUntil([&] { return undelivered == all_read; }, 10s));
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
