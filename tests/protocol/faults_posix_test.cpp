// What the system may do to a link: short and failed calls, full queues, no descriptors or threads.
#include <filesystem>
#include <fstream>

#include "tests/protocol/protocol_kit.h"
#include "tests/support/posix/faults.h"

namespace {

using namespace testkit;

// Faults are ordered before a link's threads exist, so that all their calls meet them.
class Faults : public testing::Test {
 protected:
  void SetUp() override { m_protocol.StartAlone(); }

  std::int32_t Send(const std::string& id, CFTBuffer* pkg) {
    return m_protocol.SendPkg(id, pkg, &ReleaseCounter::Release, FTSendMode::kWithinLimits,
                              FTOnRefusal::kRelease, 3);
  }

  ScriptedServer m_server;
  const ReleaseCounter m_released;
  SocketFaults m_faults;
  TestProtocol m_protocol;
};

// Queued while the send thread reports room, and so sent together.
TEST_F(Faults, PackagesLeaveTogetherInPartsAndAreReleasedOnce) {
  m_faults.AtMost(Call::kSend, 4000);
  m_faults.Fail(Call::kSend, EAGAIN, 3);
  m_faults.Fail(Call::kSend, EINTR, 4);
  const Bytes first = PatternBody(30000, 1);
  const Bytes second = PatternBody(5000, 2);
  const FTBufferPtr own(NewBuffer("mine"));
  TestProtocol protocol(FTEventMode::kDirect);
  bool queued = false;
  protocol.On().space = [&](const FTLinkInfo& link) {
    if (std::exchange(queued, true)) return;
    for (CFTBuffer* const pkg : {NewBuffer(first), NewBuffer(second), own.get()}) {
      protocol.SendPkg(link.link_id, pkg, pkg == own.get() ? nullptr : &ReleaseCounter::Release,
                       FTSendMode::kWithinLimits, FTOnRefusal::kRelease, 3);
    }
  };
  protocol.Start();
  auto link = protocol.OpenLink(m_server);
  EXPECT_EQ(link.peer.ReceiveExactly(35004, 10s), first + second + "mine");
  EXPECT_TRUE(protocol.CountersReturnToZero());
  EXPECT_TRUE(m_released.Reaches(2, 10s)) << m_released.Count();
  EXPECT_EQ(m_faults.Calls(Call::kSend), 9U + 3 + 4);  // 35,004 bytes in parts of 4,000
  protocol.Stop();
  EXPECT_EQ(own->GetDataLen(), 0) << "without a release function it stays the sender's";
}

TEST_F(Faults, AFailedSendEndsTheLinkAndItsPackagesAreReleasedOnce) {
  m_faults.Fail(Call::kSend, EPIPE, 1);
  auto link = m_protocol.OpenLink(m_server);
  for (int i = 0; i < 3; ++i) Send(link.id, NewBuffer("lost"));
  EXPECT_EQ(m_protocol.WaitClosed(), FTCloseReason::kSendFailed);
  EXPECT_EQ(m_faults.Calls(Call::kSend), 1U);
  ExpectLines(m_protocol, "Link down", Lines{LinkDown(2688, "Send error, SslErrCode[0]")});
  EXPECT_TRUE(m_released.Reaches(3, 10s)) << m_released.Count();
}

TEST_F(Faults, RoomIsReportedTwiceASecondBelowFourFifthsOfTheLimit) {
  m_faults.Fail(Call::kSend, EAGAIN, 2000000);
  const auto link = m_protocol.OpenLink(m_server);
  const auto begin = steady_clock::now();
  for (int i = 0; i < 4; ++i) {
    const auto report = m_protocol.Spaces().Take(10s);
    ASSERT_TRUE(report && report->link_id == link.id);
    EXPECT_TRUE(report->free_bytes == kQueueLimit && report->limit == kQueueLimit);
  }
  EXPECT_GE(steady_clock::now() - begin, 1000ms);

  ASSERT_EQ(Send(link.id, NewNothing(160000000)), kSendQueued);
  const std::size_t sends = m_faults.Calls(Call::kSend);
  ASSERT_TRUE(WaitUntil([&] { return m_faults.Calls(Call::kSend) > sends + 20; }, 10s));
  while (const auto report = m_protocol.Spaces().Take(0ms))
    EXPECT_EQ(report->free_bytes, kQueueLimit) << "reports of the empty queue excepted";
  const auto second = m_protocol.OpenLink(m_server);
  ASSERT_EQ(Send(second.id, NewNothing(159999999)), kSendQueued);
  const auto is_reported = [&] {
    const auto report = m_protocol.Spaces().Take(10s);
    return report && report->link_id == second.id && report->free_bytes == 40000001;
  };
  EXPECT_TRUE(WaitUntil(is_reported, 10s));
  EXPECT_GT(m_faults.Pending(), 0U) << "something was sent: the test saw nothing";
}

TEST_F(Faults, AListenerThatCannotAcceptPausesUnlessItIsStopped) {
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  m_faults.Fail(Call::kAccept, EMFILE, 1);
  const Peer accepted = Peer::Connect(port, 5s);
  ASSERT_TRUE(m_protocol.WaitFor(Kind::kAccepted));
  const auto refusals = [&] { return m_protocol.LinesWith("accept()"); };
  ExpectLines(m_protocol, "",
              Lines{"ftmtsockimpl.cpp 1660 -1 accept() error, socket fd maybe not enough.\n"});
  EXPECT_GE(steady_clock::now() - refusals().at(0).time, 1990ms);
  m_faults.Fail(Call::kAccept, EMFILE, 1);
  const Peer unheard = Peer::Connect(port, 5s);
  ASSERT_TRUE(WaitUntil([&] { return refusals().size() == 2; }, 5s));
  const auto begin = steady_clock::now();
  m_protocol.Stop();
  EXPECT_LT(steady_clock::now() - begin, 1000ms);
}

// How many of a link's two threads can start, and whether it is one of our own connects.
class LinkWithoutThreads : public Faults, public testing::WithParamInterface<int> {};

TEST_P(LinkWithoutThreads, IsLoggedAndForgottenAndReportedOnlyToWhoeverConnected) {
  const int startable = GetParam() / 2;
  const bool is_outgoing = GetParam() % 2 == 1;
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  const std::size_t descriptors = CountDescriptors();
  const ThreadLimit limit(startable);
  if (is_outgoing) m_protocol.Connect(m_server.Host(), m_server.Port());
  Peer peer = is_outgoing ? m_server.Accept(10s) : Peer::Connect(port, 10s);
  EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
  const auto all_is_back = [&] {
    return TestProtocol::GetThreadCount() == TestProtocol::kThreads &&
           CountDescriptors() == descriptors + 1;  // the peer's
  };
  EXPECT_TRUE(WaitUntil(all_is_back, 10s));
  EXPECT_EQ(limit.Refused(), 1);
  const Lines lines = LinesAbout(m_protocol, "127.0.0.1");
  ASSERT_EQ(static_cast<int>(lines.size()), 1 + startable);
  EXPECT_THAT(lines[0], testing::MatchesRegex(ft::FormatString(
                            "ftmtsockimpl.cpp %d -1 Create thread error: current threads"
                            "\\[.*\\]. One Connection\\[127.0.0.1:%c%d\\] has closed now\n",
                            startable == 0 ? 172 : 2210, is_outgoing ? 'P' : 'M',
                            is_outgoing ? m_server.Port() : port)));
  EXPECT_EQ(lines.back() == LinkDown(2219, "create thread failed."), startable == 1);
  EXPECT_TRUE(!is_outgoing ||
              m_protocol.WaitFor(Kind::kConnectFailed).value().link.link_id == "02000000");
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Each, LinkWithoutThreads, testing::Range(0, 4));

// As the system shows them: cut to 15 characters.
TEST_F(Faults, EveryThreadCarriesItsName) {
  const auto link = m_protocol.OpenLink(m_server);
  const auto names = [] {
    Lines lines;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
      std::getline(std::ifstream(task.path() / "comm"), lines.emplace_back());
    return lines;
  };
  const auto all =
      testing::IsSupersetOf({"CFTBaseSockIf", "CFTMtSockImpl", "CFTMtSockConn", "CFTMtSockListen",
                             "CFTMtSockWaitTh", "CFTMtSockOneLin", "CFTMtSockSendTh"});
  EXPECT_TRUE(WaitUntil([&] { return testing::Value(names(), all); }, 10s));
}

}  // namespace
