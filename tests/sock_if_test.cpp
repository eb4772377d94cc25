// What a protocol class is offered: link ids, Connect, SendPkg and its results, and the callbacks
// with the threads that run them.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/dead_ports.h"
#include "tests/support/release_counter.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/test_protocol.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

TEST(SockIf, LinkIdsAreTheCountersBytesLowestFirstOnAllThreads) {
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
    expected.insert(FormatString("%02X%02X0000", i % 256, i / 256));
  }
  EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()), expected);
}

void ExpectRefusesEverything(TestProtocol& protocol, const ScriptedServer& server) {
  const ReleaseCounter released;
  EXPECT_EQ(protocol.Connect(server.Host(), server.Port()), "");
  EXPECT_EQ(protocol.Listen(nullptr, 0), "");
  const FTBufferPtr pkg(NewBuffer("package"));
  EXPECT_EQ(protocol.SendPkg("01000000", pkg.get(), &ReleaseCounter::Release, 1, 0, 3), -10);
  EXPECT_EQ(released.Count(), 0);
  EXPECT_EQ(protocol.SendPkg("01000000", NewBuffer("x"), &ReleaseCounter::Release, 1, 1, 3), -10);
  EXPECT_EQ(released.Count(), 1);
  protocol.CloseLink("01000000", 0);
}

TEST(SockIf, RefusesEverythingBeforeItRunsAndAfterwards) {
  ScriptedServer server;
  TestProtocol protocol;
  ExpectRefusesEverything(protocol, server);
  protocol.Start();
  EXPECT_FALSE(server.TryAccept(300ms));
  EXPECT_EQ(protocol.Connect(server.Host(), server.Port()), "01000000");
  protocol.Stop();
  const std::size_t events = protocol.Events().Count();
  ExpectRefusesEverything(protocol, server);
  EXPECT_EQ(protocol.Events().Count(), events);
}

class RunningSockIf : public testing::Test {
 protected:
  void SetUp() override { m_protocol.Start(); }

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

TEST_F(RunningSockIf, ALinkCarriesItsAddressesAndUserValuesIntoEveryCallback) {
  const std::string id =
      m_protocol.Connect(m_server.Host(), m_server.Port(), 0xFFFFFFFF, 8, "127.0.0.2", 0);
  Peer peer = m_server.Accept(10s);
  const auto connected = m_protocol.WaitFor(Kind::kConnected);
  m_protocol.CloseLink("FFFFFFFF", 0);  // nobody's
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
  }
  EXPECT_NE(connected->link.local_port, 0);
  EXPECT_EQ(received->body, "hello");
}

TEST_F(RunningSockIf, AnAcceptedLinkIsReportedWithItsListener) {
  std::uint16_t port = 0;
  const std::string listener_id = m_protocol.Listen("127.0.0.1", 0, 7, 9, &port);
  ASSERT_EQ(listener_id, "01000000");
  Peer peer = Peer::Connect(port, 10s);
  const auto accepted = m_protocol.WaitFor(Kind::kAccepted);
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->link.link_id, "02000000");
  EXPECT_EQ(accepted->link.local_port, port);
  EXPECT_EQ(accepted->listener.link_id, listener_id);
  EXPECT_EQ(accepted->listener.user_value1, 7U);
  EXPECT_EQ(accepted->listener.user_value2, 9U);
  EXPECT_EQ(m_protocol.Send("02000000", "welcome"), 0);
  EXPECT_EQ(peer.ReceivePackage(10s), "welcome");
}

// Refused packages: the release function runs exactly once when asked to, and otherwise never.
class SendPkgRefusal : public RunningSockIf, public testing::WithParamInterface<std::int32_t> {
 protected:
  void ExpectRefused(const std::string& id, const Bytes& bytes, std::int32_t force,
                     std::int32_t result) {
    const ReleaseCounter released;
    CFTBuffer* const pkg = NewBuffer(bytes);
    EXPECT_EQ(m_protocol.SendPkg(id, pkg, &ReleaseCounter::Release, force, GetParam(), 3), result);
    EXPECT_EQ(released.Count(), GetParam());
    if (GetParam() == 0) {
      EXPECT_EQ(pkg->GetDataLen(), static_cast<std::int32_t>(bytes.size()));
      ReleaseFTBuffer(pkg);
    }
  }
};

TEST_P(SendPkgRefusal, NoPackageOrNoLinkThatIsUp) {
  const auto link = m_protocol.OpenLink(m_server);
  EXPECT_EQ(m_protocol.SendPkg(link.id, nullptr, &ReleaseCounter::Release, 1, GetParam(), 3), -1);
  ExpectRefused(link.id, "", 1, -1);
  const FTBufferPtr empty(NewBuffer(""));
  EXPECT_EQ(m_protocol.SendPkg(link.id, empty.get(), nullptr, 0, GetParam(), 3), -1);

  const FullBacklogPort mute;
  const std::string pending = m_protocol.Connect(mute.Host(), mute.Port());
  const std::string delayed = m_protocol.Connect(mute.Host(), mute.Port(), 0, 0, nullptr, 0, 60);
  auto closed = m_protocol.OpenLink(m_server);
  closed.peer.Close();
  ASSERT_TRUE(m_protocol.WaitClosed());
  for (const std::string& id : {std::string("FFFFFFFF"), pending, delayed, closed.id}) {
    SCOPED_TRACE("link " + id);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    ExpectRefused(id, "package", 1, -1);
  }
}

TEST_P(SendPkgRefusal, TheEnginesBacklogUnlessForced) {
  ScriptedServer slow(4096);
  const auto link = m_protocol.OpenLink(slow);
  FTEngineState& state = m_protocol.State();
  state.send_backlog_limit.Set(1);
  ASSERT_EQ(m_protocol.Send(link.id, PatternBody(4000000)), 0);
  ASSERT_GE(state.queued_send_bytes.Get(), 1000000);
  ExpectRefused(link.id, "package", 0, 1);
  EXPECT_EQ(m_protocol.SendPkg(link.id, NewBuffer("x"), &ReleaseFTBuffer, 1, 1, 3), 0);
  state.send_backlog_limit.Set(5);
  EXPECT_EQ(m_protocol.SendPkg(link.id, NewBuffer("x"), &ReleaseFTBuffer, 0, 1, 3), 0);
}

INSTANTIATE_TEST_SUITE_P(ReleaseOnFailure, SendPkgRefusal, testing::Values(0, 1));

class EventModes : public testing::TestWithParam<EventMode> {
 protected:
  ScriptedServer m_server;
  TestProtocol m_protocol{GetParam()};
};

TEST_P(EventModes, DirectCallbacksOfALinkRunOnItsThreadsAllOthersOnTheProtocols) {
  const bool by_message = GetParam() == EventMode::kByMessage;
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
    *keep = pkg->GetDataLen() % 2 == 0 ? 1 : 0;
    if (*keep == 1) kept.Push(pkg);
    EXPECT_EQ(m_protocol.Send(link.link_id, "answer"), 0);
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
                         testing::Values(EventMode::kByMessage, EventMode::kDirect));

// By message nobody is left to hear of the end.
TEST(DirectEvents, RunForTwoLinksAtTheSameTimeAndUntilTheEngineStops) {
  ScriptedServer server;
  TestProtocol protocol(EventMode::kDirect);
  Mailbox<int> entered;
  protocol.On().received = [&](const FTLinkInfo&, CFTBuffer*, std::int32_t*) {
    entered.Push(1);
    EXPECT_TRUE(entered.WaitFor(2, 10s)) << "the other link's callback waits for this one";
  };
  protocol.Start();
  auto first = protocol.OpenLink(server);
  auto second = protocol.OpenLink(server);
  first.peer.SendPackage("one");
  second.peer.SendPackage("two");
  ASSERT_TRUE(protocol.ReceivePackage() && protocol.ReceivePackage());
  protocol.Stop();
  EXPECT_EQ(protocol.WaitClosed(), 0);
  EXPECT_EQ(protocol.WaitClosed(), 0);
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

}  // namespace
}  // namespace testkit
