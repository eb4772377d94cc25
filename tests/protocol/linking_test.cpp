// How links come about: ids, connects and their outcomes, listening, and which thread says so.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/dead_ports.h"
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
using Kind = LinkEvent::Kind;
using Ids = std::vector<std::string>;

constexpr auto kAWhile = 300ms;  // for what must not happen

TEST(LinkIds, AreTheCountersBytesLowestFirstOnAllThreads) {
  constexpr int kThreads = 4;
  constexpr int kIdsEach = 2000;
  TestProtocol protocol;
  Mailbox<std::string> taken;
  RunOnThreads(kThreads, [&](int) {
    for (int i = 0; i < kIdsEach; ++i) taken.Push(protocol.VNewLinkId());
  });
  const auto ids = taken.All();
  std::set<std::string> expected;
  for (int i = 1; i <= kThreads * kIdsEach; ++i) {
    expected.insert(ft::FormatString("%02X%02X0000", i % 256, i / 256));
  }
  EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()), expected);
}

void ExpectRefusesEverything(TestProtocol& protocol, const ScriptedServer& server) {
  const ReleaseCounter released;
  EXPECT_EQ(protocol.Connect(server.Host(), server.Port()), "");
  EXPECT_EQ(protocol.Listen(nullptr, 0), "");
  for (const auto on_refusal : {FTOnRefusal::kKeep, FTOnRefusal::kRelease}) {
    CFTBuffer* const pkg = NewBuffer("package");
    EXPECT_EQ(protocol.SendPkg("01000000", pkg, &ReleaseCounter::Release, FTSendMode::kForced,
                               on_refusal, 3),
              kSendNotRunning);
    EXPECT_EQ(released.Count(), static_cast<int>(on_refusal));
    if (on_refusal == FTOnRefusal::kKeep) ReleaseFTBuffer(pkg);
  }
  protocol.Close("01000000");
}

TEST(Operations, AreRefusedBeforeTheThreadRunsAndAfterwards) {
  ScriptedServer server;
  TestProtocol protocol;
  ExpectRefusesEverything(protocol, server);
  protocol.Start();
  EXPECT_FALSE(server.TryAccept(kAWhile));
  EXPECT_EQ(protocol.Connect(server.Host(), server.Port()), "01000000");
  protocol.Stop();
  const std::size_t events = protocol.Events().Count();
  ExpectRefusesEverything(protocol, server);
  EXPECT_EQ(protocol.Events().Count(), events);
}

class Linking : public testing::Test {
 protected:
  void SetUp() override { m_protocol.StartAlone(); }

  // Ids in the order in which their connects are reported as failed.
  Ids TakeFailed(std::size_t count) {
    Ids ids;
    while (ids.size() < count) {
      const auto event = m_protocol.WaitFor(Kind::kConnectFailed);
      if (!event) break;
      ids.push_back(event->link.link_id);
    }
    return ids;
  }

  bool NothingHappens() { return !m_protocol.Events().WaitFor(1, kAWhile); }

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

// The address given is short for the one that the link reports.
TEST_F(Linking, ALinkCarriesItsAddressesAndUserValuesIntoEveryCallback) {
  const std::string id =
      m_protocol.Connect("127.1", m_server.Port(), 0xFFFFFFFF, 8, "127.0.0.2", 0);
  Peer peer = m_server.Accept(10s);
  const auto connected = m_protocol.WaitFor(Kind::kConnected);
  m_protocol.Close("FFFFFFFF");  // nobody's
  peer.SendPackage("hello");
  const auto received = m_protocol.WaitFor(Kind::kPackage);
  peer.Close();
  const auto closed = m_protocol.WaitFor(Kind::kClosed);
  ASSERT_TRUE(connected && received && closed);
  for (const auto& event : {connected, received, closed}) {
    EXPECT_EQ(event->link.link_id, id);
    EXPECT_EQ(event->link.kind, LINK_KIND_OUT);
    EXPECT_EQ(event->link.remote_address, "127.0.0.1");
    EXPECT_EQ(event->link.remote_port, m_server.Port());
    EXPECT_EQ(event->link.local_address, "127.0.0.2");
    EXPECT_EQ(event->link.local_port, connected->link.local_port);
    EXPECT_EQ(event->link.user_value1, 0xFFFFFFFF);
    EXPECT_EQ(event->link.user_value2, 8U);
    EXPECT_EQ(event->link.priority, 1);
  }
  EXPECT_NE(connected->link.local_port, 0);
  EXPECT_EQ(received->body, "hello");
}

TEST_F(Linking, ListenersAcceptLinksUntilTheyAreClosedAndTheLinksGoOn) {
  std::uint16_t ports[2] = {};
  ASSERT_EQ(m_protocol.Listen("127.0.0.1", 0, 7, 9, &ports[0]), "01000000");
  ASSERT_EQ(m_protocol.Listen("127.0.0.1", 0, 8, 9, &ports[1]), "02000000");
  EXPECT_EQ(m_protocol.Listen("127.0.0.1", ports[0]), "") << "the port is taken";
  EXPECT_EQ(m_protocol.Listen("localhost", 0), "") << "no name is looked up";
  std::vector<Peer> peers;
  for (const std::size_t i : {0U, 1U, 0U}) {
    peers.push_back(Peer::Connect(ports[i], 10s));
    const auto accepted = m_protocol.WaitFor(Kind::kAccepted);
    ASSERT_TRUE(accepted);
    EXPECT_EQ(accepted->link.link_id, ft::FormatString("0%d000000", int(peers.size()) + 2));
    EXPECT_EQ(accepted->link.kind, LINK_KIND_IN);
    EXPECT_EQ(accepted->link.remote_address, "127.0.0.1");
    EXPECT_EQ(accepted->link.local_port, ports[i]);
    EXPECT_EQ(accepted->link.user_value1, 0U);
    EXPECT_EQ(accepted->listener.link_id, i == 0 ? "01000000" : "02000000");
    EXPECT_EQ(accepted->listener.user_value1, 7U + i);
    EXPECT_EQ(accepted->listener.user_value2, 9U);
  }
  const std::size_t descriptors = CountDescriptors();
  m_protocol.Close("01000000");
  EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() == descriptors - 1; }, 400ms))
      << "the listener is woken";
  EXPECT_THROW(Peer::Connect(ports[0], 10s), std::runtime_error);
  EXPECT_EQ(m_protocol.Send("03000000", "welcome"), kSendQueued);
  EXPECT_EQ(peers[0].ReceivePackage(10s), "welcome");
  Peer::Connect(ports[1], 10s);
  EXPECT_TRUE(m_protocol.WaitFor(Kind::kAccepted));
}

TEST_F(Linking, AConnectThatCannotBeginIsReportedAtOnceWithALine) {
  const std::size_t before = CountDescriptors();
  const Ids ids = {m_protocol.Connect("127.0.0.1", 0),
                   m_protocol.Connect("localhost", 80),
                   m_protocol.Connect("127.0.0.1.1", 80),
                   m_protocol.Connect(nullptr, 80),
                   m_protocol.Connect("127.0.0.1", 80, 0, 0, "192.0.2.1"),
                   m_protocol.Connect("127.0.0.1", 80, 0, 0, "localhost")};
  EXPECT_EQ(TakeFailed(ids.size()), ids);
  const auto lines = m_protocol.LinesWith("BeginConnect failed, socket fd maybe not enough.");
  ASSERT_EQ(lines.size(), ids.size());
  EXPECT_EQ(lines[0].line, 1930);
  EXPECT_EQ(lines[0].level_code, -1);
  EXPECT_EQ(lines[0].text.back(), '.') << "this line has no line end";
  EXPECT_EQ(CountDescriptors(), before);
}

// A refusal is an answer that nobody tells of: it waits for its time-out like a silent server.
TEST_F(Linking, ConnectsWithoutSuccessCostNothingAndFailAtTheirTimeOutOrWhenClosed) {
  const ClosedPort refusing;
  const FullBacklogPort silent;
  ManualClock clock;
  const std::size_t before = CountDescriptors();
  const Ids ids = {m_protocol.Connect(silent.Host(), silent.Port()),
                   m_protocol.Connect(refusing.Host(), refusing.Port()),
                   m_protocol.Connect(silent.Host(), silent.Port()),
                   m_protocol.Connect(refusing.Host(), refusing.Port())};
  const auto good = m_protocol.OpenLink(m_server);  // although others hang
  const std::size_t silent_ones = FailedConnectsAreWritable() ? 2 : 4;
  EXPECT_TRUE(
      WaitUntil([&] { return CountDescriptors() == before + silent_ones + good.kDescriptors; }, 5s))
      << "only silent connects keep their sockets";
  m_protocol.Close(ids[0]);
  m_protocol.CloseLink(ids[1], FTCloseMode::kAfterSending);
  EXPECT_EQ(TakeFailed(2), (Ids{ids[0], ids[1]}));

  const auto cpu_before = CpuTime();
  clock.Advance(10000);
  EXPECT_FALSE(m_protocol.Events().WaitFor(1, 1s)) << "the time-out is only reached";
  EXPECT_LT(CpuTime() - cpu_before, 150ms) << "the system calls a refused socket ready for ever";
  clock.Advance(71);
  EXPECT_EQ(TakeFailed(2), (Ids{ids[2], ids[3]}));
  EXPECT_TRUE(NothingHappens());
  EXPECT_EQ(m_protocol.LinesWith("BeginConnect").size(), 0U);
}

TEST_F(Linking, ADelayedConnectStartsOnceItsDelayIsOverUnlessItIsClosed) {
  ManualClock clock;
  const auto connect_in = [&](std::int32_t seconds) {
    return m_protocol.Connect(m_server.Host(), m_server.Port(), 5, 0, nullptr, 0, seconds);
  };
  const std::string later = connect_in(4);
  const std::string sooner = connect_in(3);
  const std::string closed = connect_in(3);
  m_protocol.CloseLink(closed, FTCloseMode::kAfterSending);
  const auto failed = m_protocol.WaitFor(Kind::kConnectFailed);
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->link.link_id, closed);
  EXPECT_EQ(failed->link.user_value1, 5U);
  clock.Advance(2999);
  EXPECT_TRUE(NothingHappens());
  for (const std::string& due : {sooner, later}) {
    clock.Advance(1000);
    const auto connected = m_protocol.WaitFor(Kind::kConnected);
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->link.link_id, due);
  }
  EXPECT_TRUE(NothingHappens());
}

// A socket may be connected to itself: without a listener that looks like success.
TEST_F(Linking, AConnectThatReachesItselfIsNotALink) {
  ManualClock clock;
  std::uint16_t port = 0;
  const std::string listener = m_protocol.Listen("127.71.2.2", 0, 0, 0, &port);
  const std::size_t listening = CountDescriptors();
  m_protocol.Close(listener);
  ASSERT_TRUE(WaitUntil([&] { return CountDescriptors() < listening; }, 10s));
  const std::string id = m_protocol.Connect("127.71.2.2", port, 0, 0, "127.71.2.2", port);
  EXPECT_TRUE(NothingHappens());
  clock.Advance(10071);
  EXPECT_EQ(TakeFailed(1), Ids{id});
}

TEST_F(Linking, ANewcomerWithTheIdOfARunningLinkIsRefused) {
  m_protocol.On().new_link_id = [] { return "SAME"; };
  auto first = m_protocol.OpenLink(m_server);
  m_protocol.Connect(m_server.Host(), m_server.Port());
  Peer second = m_server.Accept(10s);
  EXPECT_EQ(TakeFailed(1), Ids{"SAME"});
  EXPECT_NE(second.WaitClosed(10s), LinkEnd::kStillOpen);
  first.peer.SendPackage("still here");
  EXPECT_EQ(m_protocol.ReceivePackage(), "still here");
  EXPECT_EQ(m_protocol.Send("SAME", "so am I"), kSendQueued);
  EXPECT_EQ(first.peer.ReceivePackage(10s), "so am I");
}

class EventModes : public testing::TestWithParam<FTEventMode> {
 protected:
  ScriptedServer m_server;
  TestProtocol m_protocol{GetParam()};
};

TEST_P(EventModes, DirectCallbacksOfALinkRunOnItsThreadsAllOthersOnTheProtocols) {
  const bool by_message = GetParam() == FTEventMode::kByMessage;
  m_protocol.Start();
  const std::uint32_t own = m_protocol.GetThreadId();
  m_protocol.Connect("0.0.0.0", 1);
  const auto failed = m_protocol.WaitFor(Kind::kConnectFailed);
  m_protocol.Connect(m_server.Host(), m_server.Port());
  Peer peer = m_server.Accept(10s);
  const auto connected = m_protocol.WaitFor(Kind::kConnected);
  peer.SendPackage("hello");
  const auto received = m_protocol.WaitFor(Kind::kPackage);
  const auto report = m_protocol.Spaces().Take(10s);
  peer.Close();
  const auto closed = m_protocol.WaitFor(Kind::kClosed);
  ASSERT_TRUE(failed && connected && received && report && closed);
  EXPECT_EQ(failed->thread, own);
  EXPECT_EQ(connected->thread, own);
  EXPECT_EQ(received->thread == own, by_message);
  EXPECT_EQ(report->thread == own, by_message);
  EXPECT_EQ(report->thread == received->thread, by_message);
  EXPECT_EQ(closed->thread, received->thread);
}

TEST_P(EventModes, APackageCanBeAnsweredInItsCallbackAndKept) {
  Mailbox<CFTBuffer*> kept;
  m_protocol.On().received = [&](const FTLinkInfo& link, CFTBuffer* pkg, std::int32_t* keep) {
    EXPECT_EQ(*pkg->GetWritePos(), 0) << "behind a package stands a zero";
    *keep = pkg->GetDataLen() % 2 == 0 ? 1 : 0;
    if (*keep == 1) kept.Push(pkg);
    EXPECT_EQ(m_protocol.Send(link.link_id, "answer"), kSendQueued);
  };
  m_protocol.Start();
  auto link = m_protocol.OpenLink(m_server);
  for (const std::size_t size : {0U, 1U, 2U, 5000U}) link.peer.SendPackage(PatternBody(size));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(link.peer.ReceivePackage(10s), "answer");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  m_protocol.Stop();
  for (const std::int32_t size : {0, 2, 5000}) {
    const FTBufferPtr pkg(kept.Take(10s).value_or(nullptr));
    ASSERT_TRUE(pkg);
    EXPECT_EQ(pkg->GetDataLen(), static_cast<std::int32_t>(kHeaderSize) + size);
  }
}

INSTANTIATE_TEST_SUITE_P(Both, EventModes,
                         testing::Values(FTEventMode::kByMessage, FTEventMode::kDirect));

// By message nobody is left to hear of the end.
TEST(DirectEvents, RunForTwoLinksAtTheSameTimeAndUntilTheEngineStops) {
  ScriptedServer server;
  TestProtocol protocol(FTEventMode::kDirect);
  Mailbox<int> entered;
  protocol.On().received = [&](const FTLinkInfo&, CFTBuffer*, std::int32_t*) {
    entered.Push(1);
    EXPECT_TRUE(entered.WaitFor(2, 10s)) << "the other link's callback waits for this one";
  };
  // The threads that make and reap links end before those of the links.
  protocol.On().closed = [&](const FTLinkInfo&) {
    EXPECT_LE(TestProtocol::GetThreadCount(), TestProtocol::kThreads - 3 + 4);
  };
  protocol.Start();
  auto first = protocol.OpenLink(server);
  auto second = protocol.OpenLink(server);
  first.peer.SendPackage("one");
  second.peer.SendPackage("two");
  ASSERT_TRUE(protocol.ReceivePackage() && protocol.ReceivePackage());
  protocol.Stop();
  EXPECT_EQ(protocol.WaitClosed(), FTCloseReason::kNone);
  EXPECT_EQ(protocol.WaitClosed(), FTCloseReason::kNone);
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

}  // namespace
}  // namespace testkit
