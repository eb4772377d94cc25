// How links come about: ids, connects and their outcomes, listening, and which thread says so.
#include <ctime>

#include "tests/protocol/protocol_kit.h"

namespace {

using namespace testkit;

using Ids = std::vector<std::string>;

TEST(LinkIds, AreTheCountersBytesLowestFirstOnAllThreads) {
  TestProtocol protocol;
  RunOnThreads(4, [&](int) {
    for (int i = 0; i < 200000; ++i) protocol.VNewLinkId();
  });
  EXPECT_EQ(protocol.VNewLinkId(), "01350C00");
}

TEST(Operations, AreRefusedBeforeTheThreadRunsAndAfterwards) {
  TestProtocol protocol;
  for (const bool has_run : {false, true}) {
    if (has_run) protocol.Start();
    if (has_run) protocol.Stop();
    EXPECT_EQ(protocol.Connect("127.0.0.1", 1), "");
    EXPECT_EQ(protocol.Listen(nullptr, 0), "");
    ExpectRefused(protocol, "01000000", "package", FTSendMode::kForced, kSendNotRunning);
    ExpectRefused(protocol, "01000000", "", FTSendMode::kForced, kSendNoLink);
  }
}

auto Facts(const FTLinkInfo& link) {
  return std::tuple(link.link_id, int{link.kind}, link.remote_address, link.remote_port,
                    link.local_address, link.local_port, link.user_value1, link.user_value2,
                    link.priority);
}

using EventModes = testing::TestWithParam<FTEventMode>;

// The address given is short for the one that the link reports. Direct callbacks of a link run on
// its threads, all others on the protocol's.
TEST_P(EventModes, EveryCallbackHasItsThreadAndTheLinksRecordAndMayAnswerAndKeepAPackage) {
  ScriptedServer server;
  TestProtocol protocol(GetParam());
  FTBufferPtr kept;
  protocol.On().received = [&](const FTLinkInfo& link, CFTBuffer* pkg, std::int32_t* keep) {
    *keep = 1;
    kept.reset(pkg);
    EXPECT_EQ(protocol.Send(link.link_id, "answer"), kSendQueued);
  };
  protocol.Start();
  protocol.Connect("0.0.0.0", 1);
  const auto failed = protocol.WaitFor(Kind::kConnectFailed);
  const std::string id = protocol.Connect("127.1", server.Port(), 0xFFFFFFFF, 8, "127.0.0.2", 0);
  Peer peer = server.Accept(10s);
  const auto connected = protocol.WaitFor(Kind::kConnected);
  protocol.Close("FFFFFFFF");  // nobody's
  const Bytes body = PatternBody(5000);
  for (int i = 0; i < 2; ++i) peer.SendPackage(body);
  const auto received = protocol.WaitFor(Kind::kPackage);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(peer.ReceivePackage(10s), "answer");
  auto report = protocol.Spaces().Take(10s);
  while (const auto next = protocol.Spaces().Take(100ms)) report = next;  // until it sleeps
  EXPECT_TRUE(protocol.CountersReturnToZero());
  peer.Close();
  const auto closed = protocol.WaitFor(Kind::kClosed);
  ASSERT_TRUE(failed && connected && received && report && closed && kept);
  EXPECT_EQ(received->body, body);
  EXPECT_EQ(kept->GetDataLen(), static_cast<std::int32_t>(kHeaderSize + body.size()));
  EXPECT_NE(connected->link.local_port, 0);
  for (const auto& event : {connected, received, closed}) {
    EXPECT_EQ(Facts(event->link),
              std::tuple(id, int{LINK_KIND_OUT}, "127.0.0.1", server.Port(), "127.0.0.2",
                         connected->link.local_port, 0xFFFFFFFFU, 8U, 1));
  }
  const bool by_message = GetParam() == FTEventMode::kByMessage;
  const std::uint32_t own = protocol.GetThreadId();
  EXPECT_TRUE(failed->thread == own && connected->thread == own);
  EXPECT_TRUE((received->thread == own) == by_message && (report->thread == own) == by_message);
  EXPECT_EQ(report->thread == received->thread, by_message);
  EXPECT_EQ(closed->thread, received->thread);
  EXPECT_EQ(protocol.Spaces().Count(), 0U) << "the end of the link woke its send thread";
}

INSTANTIATE_TEST_SUITE_P(Both, EventModes,
                         testing::Values(FTEventMode::kByMessage, FTEventMode::kDirect));

// By message nobody is left to hear of the end.
TEST(DirectEvents, RunUntilTheEngineStops) {
  ScriptedServer server;
  TestProtocol protocol(FTEventMode::kDirect);
  // The threads that make and reap links end before those of the links.
  protocol.On().closed = [&](const FTLinkInfo&) {
    EXPECT_LE(TestProtocol::GetThreadCount(), TestProtocol::kThreads - 3 + 3);
  };
  protocol.Start();
  const TestProtocol::OpenedLink links[] = {protocol.OpenLink(server), protocol.OpenLink(server)};
  protocol.Stop();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(protocol.WaitClosed(), FTCloseReason::kNone);
}

class Linking : public testing::Test {
 protected:
  void SetUp() override { m_protocol.StartAlone(); }

  // Ids in the order in which their connects are reported as failed.
  Ids TakeFailed(std::size_t count) {
    Ids ids;
    for (; count > 0; --count) {
      const auto event = m_protocol.WaitFor(Kind::kConnectFailed);
      ids.push_back(event ? event->link.link_id : "none");
    }
    return ids;
  }

  bool NothingHappens() { return !m_protocol.Events().WaitFor(1, kAWhile); }

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

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
    EXPECT_EQ(
        Facts(accepted->link),
        std::tuple(ft::FormatString("0%d000000", int(peers.size()) + 2), int{LINK_KIND_IN},
                   "127.0.0.1", accepted->link.remote_port, "127.0.0.1", ports[i], 0U, 0U, 1));
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
  const Ids ids = {m_protocol.Connect("127.0.0.1", 0), m_protocol.Connect("localhost", 80),
                   m_protocol.Connect(nullptr, 80),
                   m_protocol.Connect("127.0.0.1", 80, 0, 0, "192.0.2.1")};
  EXPECT_EQ(TakeFailed(ids.size()), ids);
  ExpectLines(m_protocol, "",
              Lines(ids.size(),
                    "ftmtsockimpl.cpp 1930 -1 BeginConnect failed, socket fd maybe not enough."));
  EXPECT_EQ(CountDescriptors(), before);
}

// A refusal is an answer that nobody tells of: it waits for its time-out like a silent server. So
// does a socket that was connected to itself, which without a listener looks like success.
TEST_F(Linking, ConnectsWithoutSuccessCostNothingAndFailAtTheirTimeOutOrWhenClosed) {
  const ClosedPort refusing;
  const FullBacklogPort silent;
  ManualClock clock;
  std::uint16_t own = 0;
  const std::size_t before = CountDescriptors();
  const std::string listener = m_protocol.Listen("127.71.2.2", 0, 0, 0, &own);
  m_protocol.Close(listener);
  ASSERT_TRUE(WaitUntil([&] { return CountDescriptors() == before; }, 10s));
  const Ids ids = {m_protocol.Connect(silent.Host(), silent.Port()),
                   m_protocol.Connect(refusing.Host(), refusing.Port()),
                   m_protocol.Connect(silent.Host(), silent.Port()),
                   m_protocol.Connect(refusing.Host(), refusing.Port()),
                   m_protocol.Connect("127.71.2.2", own, 0, 0, "127.71.2.2", own)};
  const auto good = m_protocol.OpenLink(m_server);  // although others hang
  const std::size_t silent_ones = kFailedConnectsAreWritable ? 2 : 4;
  EXPECT_TRUE(
      WaitUntil([&] { return CountDescriptors() == before + silent_ones + good.kDescriptors; }, 5s))
      << "only silent connects keep their sockets";
  m_protocol.Close(ids[0]);
  m_protocol.CloseLink(ids[1], FTCloseMode::kAfterSending);
  EXPECT_EQ(TakeFailed(2), (Ids{ids[0], ids[1]}));

  const std::clock_t cpu_before = std::clock();
  clock.Advance(10000);
  EXPECT_FALSE(m_protocol.Events().WaitFor(1, 1s)) << "the time-out is only reached";
  // The system calls a refused socket ready for ever. On Windows clock() is no processor time.
  EXPECT_LT(std::clock() - cpu_before, (kFailedConnectsAreWritable ? 0.15 : 10) * CLOCKS_PER_SEC);
  clock.Advance(71);
  EXPECT_EQ(TakeFailed(3), (Ids{ids[2], ids[3], ids[4]}));
  EXPECT_TRUE(NothingHappens());
  ExpectLines(m_protocol, "BeginConnect", Lines{});
}

TEST_F(Linking, ADelayedConnectStartsOnceItsDelayIsOver) {
  ManualClock clock;
  const auto id = m_protocol.Connect(m_server.Host(), m_server.Port(), 5, 0, nullptr, 0, 3);
  clock.Advance(2999);
  EXPECT_TRUE(NothingHappens());
  clock.Advance(1000);
  const auto connected = m_protocol.WaitFor(Kind::kConnected);
  ASSERT_TRUE(connected);
  EXPECT_EQ(connected->link.link_id, id);
  EXPECT_TRUE(NothingHappens());
}

// Its close finds it in the schedule, on its way to the connector or there.
TEST_F(Linking, ADelayedConnectThatIsClosedWhenItBecomesDueFailsOnce) {
  ManualClock clock;
  const ClosedPort refusing;
  for (int round = 0; round < 30; ++round) {
    Ids ids;
    while (ids.size() < 200)
      ids.push_back(m_protocol.Connect(refusing.Host(), refusing.Port(), 0, 0, nullptr, 0, 3));
    for (const std::string& id : ids) {
      clock.Advance(30);
      m_protocol.Close(id);
      std::this_thread::yield();
    }
    ASSERT_TRUE(m_protocol.Events().WaitFor(200, 10s)) << "round " << round;
    EXPECT_THAT(TakeFailed(200), testing::UnorderedElementsAreArray(ids));
  }
  EXPECT_TRUE(NothingHappens());
}

// By the time the end is reported the socket is closed and the id is free, even while the report is
// being handled.
TEST(LinkIds, ANewcomerIsRefusedOnlyWhileALinkWithItsIdRuns) {
  ScriptedServer server;
  std::atomic<bool> is_closed = false;
  std::atomic<int> ends = 0;
  TestProtocol protocol(FTEventMode::kDirect);
  protocol.On().new_link_id = [] { return "SAME"; };
  protocol.On().closed = [&](const FTLinkInfo&) {
    if (++ends > 1) return;
    protocol.Connect(server.Host(), server.Port());
    EXPECT_TRUE(WaitUntil([&] { return is_closed && protocol.IsLinkUp("SAME") == 1; }, 10s));
  };
  protocol.StartAlone();
  auto first = protocol.OpenLink(server);
  first.peer.StopSending();
  Peer second = server.Accept(10s);
  EXPECT_NE(first.peer.WaitClosed(10s), LinkEnd::kStillOpen);
  is_closed = true;
  EXPECT_TRUE(protocol.WaitFor(Kind::kClosed));
  EXPECT_TRUE(
      WaitUntil([] { return TestProtocol::GetThreadCount() == TestProtocol::kThreads + 2; }, 10s));
  protocol.Connect(server.Host(), server.Port());
  auto third = server.TryAccept(10s);  // on Windows a link that was reset is not accepted
  EXPECT_TRUE(protocol.WaitFor(Kind::kConnectFailed));
  EXPECT_TRUE(!third || third->WaitClosed(10s) != LinkEnd::kStillOpen);
  EXPECT_EQ(protocol.Send("SAME", "still here"), kSendQueued);
  EXPECT_EQ(second.ReceivePackage(10s), "still here");
}

}  // namespace
