// What arrives on a link: cut, delivered in order and counted, or the end of the link. And what
// goes out: order, limits, refusals, heartbeats and reports of room.
#include "tests/protocol/protocol_kit.h"

namespace {

using namespace testkit;

constexpr std::int64_t kEngineLimit = 800000000;

class Traffic : public testing::Test {
 protected:
  TestProtocol::OpenedLink Open() {
    if (m_protocol.IsRunning() == 0) m_protocol.Start();
    return m_protocol.OpenLink(m_server);
  }

  // The next event is the end of the link for this reason, with this line or without any.
  void ExpectClosed(const std::string& id, FTCloseReason reason, const std::string& line = "") {
    const auto closed = m_protocol.Events().Take(10s);
    ASSERT_TRUE(closed && closed->kind == Kind::kClosed);
    EXPECT_EQ(closed->link.link_id, id);
    EXPECT_EQ(closed->reason, reason);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    if (!line.empty()) m_lines.push_back(line);
    ExpectLines(m_protocol, "Link down", m_lines);
  }

  ScriptedServer m_server;
  TestProtocol m_protocol;
  Lines m_lines;  // about ended links, so far
};

using Receiving = Traffic;

// Of the good packages only those of the same regular buffer are lost with the faulty one.
TEST_F(Receiving, AFaultInTheStreamEndsTheLinkAndDropsThePackagesBesideIt) {
  const Bytes good = BuildPackage("good");
  const Bytes large = PatternBody(3000);
  auto too_big = Open();
  too_big.peer.SendRaw(BuildPackage(large) + good + good +
                       BuildHeader(0x500000 - kHeaderSize, "sums"));
  EXPECT_EQ(m_protocol.ReceivePackage(), large);
  ExpectClosed(too_big.id, FTCloseReason::kBadPkg, LinkDown(2372, "Pkg is too big."));
  auto negative = Open();
  negative.peer.SendRaw(good + good + BuildHeader(0x7FFFFFFF, "sums"));
  ExpectClosed(negative.id, FTCloseReason::kBadPkg, LinkDown(2455, "protocol is error."));
  EXPECT_THAT(LinesAbout(m_protocol, "Recv msg count[2]"),
              testing::Contains("ftmtsockimpl.cpp 2335 10 Recv msg count[2] from[127.0.0.1]\n"));
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  m_protocol.Stop();
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

// The engine ends the link while its receive thread is about to find a fault of its own.
TEST_F(Receiving, TheFirstReasonStands) {
  m_protocol.On().package_length = [&](const unsigned char*, std::int32_t) {
    m_protocol.Close("01000000");
    EXPECT_TRUE(WaitUntil([&] { return m_protocol.IsLinkUp("01000000") == 0; }, 10s));
    return -1;
  };
  auto link = Open();
  link.peer.SendRaw("not a package");
  ExpectClosed(link.id, FTCloseReason::kOnRequest, LinkDown(333, "I close it."));
}

TEST_F(Receiving, APackageMustNotGrowWhileItIsAssembled) {
  m_protocol.On().package_length = [](const unsigned char*, std::int32_t count) {
    return count < 3000 ? 3000 : 3001;
  };
  auto link = Open();
  link.peer.SendRaw(Bytes(3000, 'x'));
  ExpectClosed(link.id, FTCloseReason::kNotStarted, LinkDown(2421, "VGetOnePkgLen is error."));
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(Receiving, OnlySilenceOfMoreThan35SecondsEndsTheLink) {
  ManualClock clock;
  auto link = Open();
  for (std::size_t bytes = 1; bytes <= 3; ++bytes) {
    clock.Advance(35000);
    link.peer.SendRaw("\1");
    ASSERT_TRUE(WaitUntil([&] { return m_protocol.LinesWith("msg count").size() == bytes; }, 10s));
  }
  // The check is made every two seconds, of the wait before: last of one that began at 35 seconds.
  for (const std::uint32_t silence : {34000U, 1000U, 1000U}) {
    clock.Advance(silence);
    EXPECT_EQ(link.peer.WaitClosed(1200ms), LinkEnd::kStillOpen);  // two waits of the thread
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  const FastClock runs_on(20);
  ExpectClosed(link.id, FTCloseReason::kRecvTimeout, LinkDown(2502, "Recv timeout."));
}

// Four MiB may wait. What the peer cannot say meanwhile is not held against it.
TEST(Throttle, ReadingWaitsWhileTooMuchWaitsForTheProtocolObject) {
  constexpr std::int64_t kLimit = 4 << 20;
  const std::string line = "ftmtsockimpl.cpp 2301 20 Recv MinResolveMillSec=[1] of [127.0.0.1]\n";
  for (const auto& [mode, behind, waits] : {std::tuple(FTEventMode::kByMessage, kLimit, true),
                                            std::tuple(FTEventMode::kByMessage, kLimit - 1, false),
                                            std::tuple(FTEventMode::kDirect, kLimit, false)}) {
    ManualClock clock;
    ScriptedServer server;
    TestProtocol protocol(mode);
    protocol.Start();
    auto link = protocol.OpenLink(server);
    auto& undelivered = protocol.State().recv_backlog;
    undelivered.Add(behind);
    ExpectLines(protocol, "MinResolveMillSec", Lines(waits ? 1 : 0, line));
    link.peer.SendPackage("first");
    EXPECT_EQ(!protocol.Events().WaitFor(1, kAWhile), waits);
    undelivered.Add(-behind);
    EXPECT_EQ(protocol.ReceivePackage(), "first");
    if (!waits) continue;

    undelivered.Add(behind);
    ExpectLines(protocol, "MinResolveMillSec", {line, line});
    clock.Advance(40000);
    undelivered.Add(-behind);
    for (const std::uint32_t to_next_check : {2000U, 2000U}) {  // the first may be too early
      clock.Advance(to_next_check);
      EXPECT_EQ(link.peer.WaitClosed(1200ms), LinkEnd::kStillOpen);
    }
    link.peer.SendPackage("second");
    EXPECT_EQ(protocol.ReceivePackage(), "second");
    clock.Advance(36000);
    const FastClock runs_on(3);
    EXPECT_NE(link.peer.WaitClosed(10s), LinkEnd::kStillOpen) << "silence counts anew";
    EXPECT_TRUE(protocol.CountersReturnToZero());
  }
}

using Sending = Traffic;

// While a blocker that is a batch by itself waits for the socket, everything else collects in the
// queue.
TEST_F(Sending, BeginsAtOnceAndPriorityDecidesWhatFollowsAPackageThatFillsTheSocket) {
  auto link = Open();
  ASSERT_TRUE(m_protocol.Spaces().Take(10s));
  const auto begin = steady_clock::now();
  ASSERT_EQ(m_protocol.Send(link.id, "at once"), 0);
  EXPECT_EQ(link.peer.ReceivePackage(10s), "at once");
  EXPECT_LT(steady_clock::now() - begin, 400ms) << "an idle thread is woken";

  const Bytes blocker = PatternBody(12500000);
  ASSERT_EQ(m_protocol.Send(link.id, blocker, 1), 0);
  for (const auto& [body, priority] : {std::pair("3a", 3),
                                       {"1a", 1},
                                       {"9 is 5", 9},
                                       {"0 is 1", 0},
                                       {"3b", 3},
                                       {"2a", 2},
                                       {"5b", 5}}) {
    ASSERT_EQ(m_protocol.Send(link.id, body, priority), 0);
  }
  EXPECT_TRUE(link.peer.ReceivePackage(10s) == blocker);
  for (const char* body : {"1a", "0 is 1", "2a", "3a", "3b", "9 is 5", "5b"})
    EXPECT_EQ(link.peer.ReceivePackage(10s), body);
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(Sending, IsRefusedOfNoPackageWithoutALinkThatIsUpAndBeyondTheEnginesBacklogUnlessForced) {
  auto link = Open();
  auto closed = Open();
  closed.peer.Close();
  ASSERT_TRUE(m_protocol.WaitClosed());
  const FullBacklogPort mute;
  const std::string pending = m_protocol.Connect(mute.Host(), mute.Port());
  const std::string delayed = m_protocol.Connect(mute.Host(), mute.Port(), 0, 0, nullptr, 0, 60);
  for (const std::string& id : {std::string("FFFFFFFF"), pending, delayed, closed.id}) {
    SCOPED_TRACE("link " + id);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    ExpectRefused(m_protocol, id, "package", FTSendMode::kForced, kSendNoLink);
  }
  EXPECT_EQ(
      m_protocol.SendPkg(link.id, nullptr, nullptr, FTSendMode::kForced, FTOnRefusal::kRelease, 3),
      kSendNoLink);

  auto& queued = m_protocol.State().queued_send_bytes;
  queued += kEngineLimit;
  ExpectRefused(m_protocol, link.id, "package", FTSendMode::kWithinLimits, kSendTooMuch);
  EXPECT_EQ(m_protocol.SendPkg(link.id, NewBuffer("x"), &ReleaseFTBuffer, FTSendMode::kForced,
                               FTOnRefusal::kRelease, 3),
            kSendQueued);
  ASSERT_TRUE(WaitUntil([&] { return queued == kEngineLimit; }, 10s));
  queued -= 1;
  EXPECT_EQ(m_protocol.Send(link.id, "x"), kSendQueued);
  queued -= kEngineLimit - 1;
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TestProtocol* g_sender = nullptr;
std::atomic<std::int32_t> g_next_result{-2};

std::int32_t SendNothing(const std::string& id, std::int32_t length,
                         FTSendMode mode = FTSendMode::kWithinLimits,
                         FTReleaseFunction release = &ReleaseFTBuffer) {
  return g_sender->SendPkg(id, NewNothing(length), release, mode, FTOnRefusal::kRelease, 3);
}

void SendNext(CFTBuffer* buffer) {
  ReleaseFTBuffer(buffer);
  g_next_result = SendNothing("01000000", 10);
}

// Filled while the send thread reports room and so sends nothing. Who sends the next package when
// one is released finds the room that this made.
TEST(SendingLimit, IsPassedOnlyByForceOrByTheFirstPackageAndLeftBeforeAPackageIsReleased) {
  ScriptedServer server;
  TestProtocol protocol(FTEventMode::kDirect);
  g_sender = &protocol;
  auto& queued = protocol.State().queued_send_bytes;
  protocol.On().space = [&](const FTLinkInfo& link) {
    if (queued > 0) return;
    EXPECT_EQ(SendNothing(link.link_id, 10, FTSendMode::kWithinLimits, &SendNext), kSendQueued);
    EXPECT_EQ(SendNothing(link.link_id, kQueueLimit - 9), kSendTooMuch);
    EXPECT_EQ(SendNothing(link.link_id, kQueueLimit - 10), kSendQueued);
    EXPECT_EQ(SendNothing(link.link_id, 1), kSendTooMuch);
    EXPECT_EQ(SendNothing(link.link_id, 11, FTSendMode::kForced), kSendQueued);
    EXPECT_EQ(queued, kQueueLimit + 11);
    queued += kEngineLimit - kQueueLimit;
  };
  protocol.Start();
  const auto link = protocol.OpenLink(server);
  ASSERT_TRUE(WaitUntil([] { return g_next_result != -2; }, 10s));
  EXPECT_EQ(g_next_result, kSendQueued);

  queued -= kEngineLimit - kQueueLimit;
  const auto second = protocol.OpenLink(server);
  EXPECT_EQ(SendNothing(second.id, kQueueLimit + 1), kSendQueued);
  EXPECT_EQ(SendNothing(second.id, 50000000), kSendTooMuch);  // more than the system takes
}

// In a report of room, on the send thread, more is queued than goes into one write. The release of
// the first package ends the link, whose receive thread is kept from closing the socket.
TEST(SendingEnd, NothingIsWrittenOnceTheLinkHasEnded) {
  ScriptedServer server;
  Mailbox<int> leave;
  std::atomic<bool> receiving{false};
  TestProtocol protocol(FTEventMode::kDirect);
  g_sender = &protocol;
  protocol.On().received = [&](const FTLinkInfo&, CFTBuffer*, std::int32_t*) {
    receiving = true;
    leave.WaitFor(1, 20s);
  };
  protocol.On().space = [&](const FTLinkInfo& link) {
    if (!receiving || protocol.State().queued_send_bytes > 0) return;
    const auto end_link = [](CFTBuffer* buffer) {
      ReleaseFTBuffer(buffer);
      g_sender->Close("01000000");
      EXPECT_TRUE(WaitUntil([] { return g_sender->IsLinkUp("01000000") == 0; }, 10s));
    };
    SendNothing(link.link_id, 1, FTSendMode::kForced, end_link);
    for (int i = 0; i < platform::kMaxPieces; ++i) SendNothing(link.link_id, 1);
  };
  protocol.Start();
  auto link = protocol.OpenLink(server);
  link.peer.SendPackage("question");
  EXPECT_TRUE(link.peer.ReceiveExactly(platform::kMaxPieces, 10s));
  EXPECT_TRUE(WaitUntil([&] { return protocol.IsLinkUp(link.id) == 0; }, 10s));
  EXPECT_FALSE(link.peer.ReceiveExactly(1, kAWhile));
  leave.Push(1);
}

// The link ends while one of its reports is under way.
TEST(Spaces, NoReportFollowsTheEndOfItsLink) {
  for (const auto mode : {FTEventMode::kByMessage, FTEventMode::kDirect}) {
    ScriptedServer server;
    Mailbox<int> reporting;
    std::atomic<bool> reported{false};
    TestProtocol protocol(mode);
    protocol.On().space = [&](const FTLinkInfo& link) {
      reporting.Push(1);
      const auto down = [&] { return protocol.IsLinkUp(link.link_id) == 0; };
      reported = WaitUntil(down, 10s) && !WaitUntil([] { return false; }, 50ms);
    };
    protocol.On().closed = [&](const FTLinkInfo&) { EXPECT_TRUE(reported); };
    protocol.Start();
    auto link = protocol.OpenLink(server);
    ASSERT_TRUE(reporting.WaitFor(1, 10s));
    link.peer.Close();
    EXPECT_EQ(protocol.WaitClosed(), FTCloseReason::kRecvFailed);
    const std::size_t reports = protocol.Spaces().Count();
    EXPECT_FALSE(protocol.Spaces().WaitFor(reports + 1, 600ms));
  }
}

// Mode by mode: only by message in both is a heartbeat made on the protocol's thread.
TEST(Heartbeats, GoOutAfter15SecondsWithoutSendingWhateverTheBacklog) {
  for (const int mode : {0, 1, 2, 3}) {
    ManualClock clock;
    ScriptedServer server;
    TestProtocol protocol(mode & 2 ? FTEventMode::kByMessage : FTEventMode::kDirect,
                          mode & 1 ? FTHeartbeatMode::kByMessage : FTHeartbeatMode::kOnSendThread,
                          FTSpaceReports::kNone);
    protocol.Start();
    auto link = protocol.OpenLink(server);
    clock.Advance(10000);
    ASSERT_EQ(protocol.Send(link.id, "busy"), 0);
    EXPECT_EQ(link.peer.ReceivePackage(10s), "busy");
    clock.Advance(14999);
    EXPECT_FALSE(link.peer.WaitForHeartbeats(1, 1200ms));  // two waits of the thread
    protocol.State().queued_send_bytes += kEngineLimit;
    EXPECT_EQ(protocol.Send(link.id, "refused"), kSendTooMuch);
    clock.Advance(1001);
    EXPECT_TRUE(link.peer.WaitForHeartbeats(1, 10s));
    const auto calls = protocol.HeartbeatCalls().All();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0] == protocol.GetThreadId(), mode == 3) << mode;
    EXPECT_EQ(protocol.Spaces().Count(), 0U) << "reports go only to protocols that want them";
  }
}

}  // namespace
