// How links and protocol objects end: on request, in time, and with nothing left behind.
#include "tests/protocol/protocol_kit.h"

namespace {

using namespace testkit;

class GivesEverythingBack : public testing::Test {
 protected:
  ~GivesEverythingBack() override {
    EXPECT_TRUE(m_before.AreRestored(10s)) << m_before.Difference();
  }

  ScriptedServer m_slow{4096};
  const HeldResources m_before;
};

// The clock stands still: nothing here may wait for a timer.
class Ending : public GivesEverythingBack {
 protected:
  void SetUp() override { m_protocol->StartAlone(); }

  void SendMuch(const std::string& link_id) {
    m_protocol->SendPkg(link_id, NewBuffer(PatternBody(12000000)), &ReleaseCounter::Release,
                        FTSendMode::kWithinLimits, FTOnRefusal::kRelease, 3);
  }

  ManualClock m_clock;
  const ReleaseCounter m_released;
  std::unique_ptr<TestProtocol> m_protocol = std::make_unique<TestProtocol>();
};

// Nobody reads the package, so it is released because the link is deleted.
TEST_F(Ending, ALinkThatEitherSideClosesIsReportedWithTheReasonAndGivesEverythingBackAtOnce) {
  int links = 0;
  const auto end_link = [&](bool by_us) {
    auto link = m_protocol->OpenLink(m_slow);
    SendMuch(link.id);
    by_us ? m_protocol->Close(link.id) : link.peer.StopSending();
    if (by_us) m_protocol->Close(link.id);
    EXPECT_EQ(m_protocol->WaitClosed(),
              by_us ? FTCloseReason::kOnRequest : FTCloseReason::kRecvFailed);
    ++links;
    return std::move(link.peer);
  };
  for (const bool by_us : {true, false}) {
    const HeldResources before;
    Peer peer = end_link(by_us);
    EXPECT_TRUE(m_released.Reaches(links, 10s)) << m_released.Count();
    EXPECT_TRUE(m_protocol->CountersReturnToZero());
    EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
    peer.Close();
    EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
    EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads);
  }
  ExpectLines(*m_protocol, "Link down", Lines{LinkDown(333, "I close it.")});
  EXPECT_EQ(m_protocol->Events().Count(), 0U);
  for (int i = 0; i < 3; ++i) end_link(i == 0);
  m_protocol.reset();
  EXPECT_EQ(m_released.Count(), links) << "whoever had the others let go of them";
}

// The last link that was asked for is gone when the package of the next is released.
TEST_F(Ending, AReleaseFunctionMayAskForALinkThatIsGone) {
  static TestProtocol* s_protocol = nullptr;
  static std::string s_asked_for;
  static int s_found = 0;
  s_protocol = m_protocol.get();
  std::vector<TestProtocol::OpenedLink> links;
  for (int i = 0; i < 3; ++i) links.push_back(m_protocol->OpenLink(m_slow));
  s_asked_for = links.back().id;
  for (const auto& link : links) {
    const auto release = [](CFTBuffer* buffer) {
      s_found += s_protocol->IsLinkUp(s_asked_for);
      ReleaseCounter::Release(buffer);
    };
    m_protocol->SendPkg(link.id, NewBuffer(PatternBody(12000000)), release,
                        FTSendMode::kWithinLimits, FTOnRefusal::kRelease, 3);
  }
  EXPECT_EQ(m_protocol->IsLinkUp(s_asked_for), 1);
  m_protocol->Stop();
  EXPECT_EQ(m_protocol->IsLinkUp(s_asked_for), 0);
  m_protocol.reset();
  EXPECT_EQ(m_released.Count(), 3);
  EXPECT_EQ(s_found, 0);
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
  ExpectLines(*m_protocol, "Link down", Lines{LinkDown(2634, "I close it.")});

  Peer idle = Peer::Connect(port, 10s);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kAccepted));
  const auto begin = steady_clock::now();
  m_protocol->CloseLink("03000000", FTCloseMode::kAfterSending);
  EXPECT_EQ(m_protocol->WaitClosed(), FTCloseReason::kOnRequest);
  EXPECT_LT(steady_clock::now() - begin, 400ms) << "an idle send thread is woken";
  EXPECT_EQ(idle.WaitClosed(10s), LinkEnd::kOrderly);
}

using Stop = GivesEverythingBack;

// Every thread sleeps somewhere else, and each of them half a second or longer if nobody wakes it.
TEST_F(Stop, WakesEveryThreadWhereverItWaits) {
  const FullBacklogPort mute;
  int in_time = 0;
  for (int round = 0; round < 5; ++round) {
    TestProtocol protocol;
    protocol.StartAlone();
    const auto idle = protocol.OpenLink(m_slow);
    const auto blocked = protocol.OpenLink(m_slow);
    auto throttled = protocol.OpenLink(m_slow);
    protocol.State().recv_backlog.Add(800000000);
    throttled.peer.SendRaw("half a package");
    ASSERT_EQ(protocol.Send(blocked.id, PatternBody(12000000)), kSendQueued);
    protocol.Listen("127.0.0.1", 0);
    protocol.Connect(mute.Host(), mute.Port());
    std::this_thread::sleep_for(round * 70ms);  // so that they are at different places
    const auto begin = steady_clock::now();
    if (round % 2 == 0) protocol.StopThread();
    protocol.Stop();
    in_time += steady_clock::now() - begin < 200ms ? 1 : 0;
  }
  EXPECT_GE(in_time, 3) << "of five";
}

// A send thread and a receive thread, which the engine joins, are each in a callback that goes on
// calling the protocol object until the stop is far advanced.
TEST_F(Stop, EndsWhileCallbacksAreAtWork) {
  Mailbox<std::string> in_callback;
  TestProtocol protocol(FTEventMode::kDirect);
  const auto keep_asking_about = [&](const std::string& link_id) {
    return [&, link_id](const FTLinkInfo& link) {
      if (link.link_id != link_id) return;
      in_callback.Push(link_id);
      while (protocol.IsRunning() == 1) protocol.IsLinkUp(link_id);
      const auto end = steady_clock::now() + 300ms;  // listener, connector and wait thread first
      while (steady_clock::now() < end) {
        protocol.IsLinkUp(link_id);
        protocol.Send(link_id, "late");
        protocol.Close(link_id);
      }
    };
  };
  protocol.On().space = keep_asking_about("01000000");
  protocol.On().closed = keep_asking_about("02000000");
  protocol.Start();
  const auto sending = protocol.OpenLink(m_slow);
  protocol.OpenLink(m_slow).peer.Close();
  ASSERT_TRUE(in_callback.WaitFor(2, 20s));
  protocol.Stop();
}

}  // namespace
