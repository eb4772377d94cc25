// What a protocol class is offered: link ids, Connect, SendPkg and its results, and the callbacks.
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "tests/support/dead_ports.h"
#include "tests/support/manual_clock.h"
#include "tests/support/release_counter.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

constexpr auto kAWhile = 300ms;  // for what must not happen

TEST(SockIf, LinkIdsAreTheCountersBytesLowestFirst) {
  TestProtocol protocol;
  std::vector<std::string> ids;
  for (int i = 0; i < 256; ++i) ids.push_back(protocol.VNewLinkId());
  EXPECT_EQ(ids[0], "01000000");
  EXPECT_EQ(ids[1], "02000000");
  EXPECT_EQ(ids[16], "11000000");
  EXPECT_EQ(ids[170], "AB000000");
  EXPECT_EQ(ids[255], "00010000");
}

TEST(SockIf, NoTwoThreadsGetTheSameLinkId) {
  constexpr std::size_t kThreads = 4;
  constexpr std::size_t kIdsEach = 2000;
  TestProtocol protocol;
  std::vector<std::vector<std::string>> taken(kThreads);
  std::vector<std::thread> threads;
  for (auto& ids : taken) {
    threads.emplace_back([&] {
      for (std::size_t i = 0; i < kIdsEach; ++i) ids.push_back(protocol.VNewLinkId());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> distinct;
  for (const auto& ids : taken) distinct.insert(ids.begin(), ids.end());
  EXPECT_EQ(distinct.size(), kThreads * kIdsEach);
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
  EXPECT_FALSE(server.TryAccept(kAWhile));
  EXPECT_EQ(protocol.Connect(server.Host(), server.Port()), "01000000");
  EXPECT_EQ(protocol.Connect(server.Host(), server.Port()), "02000000");
  protocol.Stop();
  const std::size_t events = protocol.Events().Count();
  ExpectRefusesEverything(protocol, server);
  EXPECT_EQ(protocol.Events().Count(), events);
}

TEST(SockIf, ALinkCarriesItsAddressesAndUserValuesIntoEveryCallback) {
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  const std::string id = protocol.Connect(server.Host(), server.Port(), 0xFFFFFFFF, 8);
  Peer peer = server.Accept(10s);
  peer.SendPackage("hello");
  const auto connected = protocol.WaitFor(Kind::kConnected);
  const auto received = protocol.WaitFor(Kind::kPackage);
  peer.Close();
  const auto closed = protocol.WaitFor(Kind::kClosed);
  ASSERT_TRUE(connected && received && closed);
  for (const auto& event : {connected, received, closed}) {
    EXPECT_EQ(event->link.link_id, id);
    EXPECT_EQ(event->link.kind, LINK_KIND_OUT);
    EXPECT_EQ(event->link.remote_address, "127.0.0.1");
    EXPECT_EQ(event->link.remote_port, server.Port());
    EXPECT_EQ(event->link.local_address, "127.0.0.1");
    EXPECT_EQ(event->link.local_port, connected->link.local_port);
    EXPECT_EQ(event->link.user_value1, 0xFFFFFFFF);
    EXPECT_EQ(event->link.user_value2, 8U);
  }
  EXPECT_NE(connected->link.local_port, 0);
  EXPECT_EQ(received->body, "hello");
}

TEST(SockIf, AnAcceptedLinkIsReportedWithItsListener) {
  TestProtocol protocol;
  protocol.Start();
  std::uint16_t port = 0;
  const std::string listener_id = protocol.Listen("127.0.0.1", 0, 7, 9, &port);
  ASSERT_EQ(listener_id, "01000000");
  Peer peer = Peer::Connect(port, 10s);
  const auto accepted = protocol.WaitFor(Kind::kAccepted);
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->link.link_id, "02000000");
  EXPECT_EQ(accepted->link.kind, LINK_KIND_IN);
  EXPECT_EQ(accepted->link.local_port, port);
  EXPECT_EQ(accepted->listener.link_id, listener_id);
  EXPECT_EQ(accepted->listener.user_value1, 7U);
  EXPECT_EQ(accepted->listener.user_value2, 9U);
  EXPECT_EQ(protocol.Send("02000000", "welcome"), 0);
  EXPECT_EQ(peer.ReceivePackage(10s), "welcome");
}

TEST(SockIf, AConnectBindsToTheLocalEndGiven) {
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  protocol.Connect(server.Host(), server.Port(), 0, 0, "127.0.0.2", 0);
  const auto connected = protocol.WaitFor(Kind::kConnected);
  ASSERT_TRUE(connected);
  EXPECT_EQ(connected->link.local_address, "127.0.0.2");
}

// Refused packages: the release function runs exactly once when asked to, and otherwise never.
class SendPkgRefusal : public testing::TestWithParam<std::int32_t> {
 protected:
  void SetUp() override { m_protocol.Start(); }

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

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

TEST_P(SendPkgRefusal, NoPackageOrAnEmptyOne) {
  const auto link = m_protocol.OpenLink(m_server);
  const ReleaseCounter released;
  EXPECT_EQ(m_protocol.SendPkg(link.id, nullptr, &ReleaseCounter::Release, 1, GetParam(), 3), -1);
  EXPECT_EQ(released.Count(), 0);
  ExpectRefused(link.id, "", 1, -1);
  const FTBufferPtr empty(NewBuffer(""));
  EXPECT_EQ(m_protocol.SendPkg(link.id, empty.get(), nullptr, 0, GetParam(), 3), -1);
}

TEST_P(SendPkgRefusal, LinksThatAreNotUp) {
  const FullBacklogPort mute;
  const std::string pending = m_protocol.Connect(mute.Host(), mute.Port());
  const std::string delayed = m_protocol.Connect(mute.Host(), mute.Port(), 0, 0, nullptr, 0, 60);
  auto closed = m_protocol.OpenLink(m_server);
  closed.peer.Close();
  ASSERT_TRUE(m_protocol.WaitClosed());
  for (const std::string& id :
       {std::string("FFFFFFFF"), std::string(), pending, delayed, closed.id}) {
    SCOPED_TRACE("link " + id);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    ExpectRefused(id, "package", 1, -1);
  }
}

TEST_P(SendPkgRefusal, TheEnginesBacklog) {
  ScriptedServer slow(4096);
  const auto link = m_protocol.OpenLink(slow);
  FTEngineState& state = m_protocol.State();
  state.send_backlog_limit.Set(1);
  ASSERT_EQ(m_protocol.Send(link.id, PatternBody(4000000)), 0);
  ASSERT_GE(state.queued_send_bytes.Get(), 1000000);
  ExpectRefused(link.id, "package", 0, 1);
  EXPECT_EQ(m_protocol.SendPkg(link.id, NewBuffer("x"), &ReleaseFTBuffer, 1, 1, 3), 0);
  const auto queued = state.queued_send_bytes.Get();
  state.send_backlog_limit.Set(static_cast<std::int32_t>(queued / 1000000 + 1));
  EXPECT_EQ(m_protocol.SendPkg(link.id, NewBuffer("x"), &ReleaseFTBuffer, 0, 1, 3), 0);
}

INSTANTIATE_TEST_SUITE_P(ReleaseOnFailure, SendPkgRefusal, testing::Values(0, 1));

TEST(SockIf, AnAcceptedPackageIsReleasedOnceAfterItIsSent) {
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  auto link = protocol.OpenLink(server);
  const ReleaseCounter released;
  const Bytes package = BuildPackage(PatternBody(50000));
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(protocol.SendPkg(link.id, NewBuffer(package), &ReleaseCounter::Release, 0, i % 2, 3),
              0);
  }
  for (int i = 0; i < 20; ++i) EXPECT_EQ(link.peer.ReceivePackage(10s), PatternBody(50000));
  EXPECT_TRUE(released.Reaches(20, 10s)) << released.Count();
  EXPECT_TRUE(protocol.CountersReturnToZero());
  protocol.Stop();
  EXPECT_EQ(released.Count(), 20);
}

TEST(SockIf, APackageWithoutReleaseFunctionStaysTheSenders) {
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  auto link = protocol.OpenLink(server);
  const FTBufferPtr pkg(NewBuffer(BuildPackage("mine")));
  EXPECT_EQ(protocol.SendPkg(link.id, pkg.get(), nullptr, 0, 1, 3), 0);
  EXPECT_EQ(link.peer.ReceivePackage(10s), "mine");
  protocol.Stop();
  EXPECT_EQ(pkg->GetDataLen(), 0);
}

TEST(SockIf, AKeptPackageIsTheProtocolsAndNoLongerCounted) {
  ScriptedServer server;
  TestProtocol protocol;
  Mailbox<CFTBuffer*> kept;
  protocol.On().received = [&](const FTLinkInfo&, CFTBuffer* pkg, std::int32_t* keep) {
    *keep = 1;
    kept.Push(pkg);
  };
  protocol.Start();
  auto link = protocol.OpenLink(server);
  link.peer.SendPackage("first");
  link.peer.SendPackage(PatternBody(5000));
  const auto first = kept.Take(10s);
  const auto second = kept.Take(10s);
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(protocol.CountersReturnToZero());
  protocol.Stop();
  const FTBufferPtr pkg(*first);
  const FTBufferPtr large(*second);
  EXPECT_EQ(pkg->GetDataLen(), static_cast<std::int32_t>(BuildPackage("first").size()));
  EXPECT_EQ(large->GetDataLen(), static_cast<std::int32_t>(kHeaderSize + 5000));
}

TEST(SockIf, ClosingAnUnknownLinkChangesNothing) {
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  auto link = protocol.OpenLink(server);
  protocol.CloseLink("FFFFFFFF", 0);
  protocol.CloseLink("", 1);
  link.peer.SendPackage("still here");
  EXPECT_EQ(protocol.ReceivePackage(), "still here");
  EXPECT_EQ(link.peer.WaitClosed(kAWhile), LinkEnd::kStillOpen);
  EXPECT_EQ(protocol.IsLinkUp(link.id), 1);
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

// A protocol class that supplies what it must and nothing else.
class BareProtocol : public CFTBaseSockIf {
 public:
  BareProtocol() : CFTBaseSockIf(1, 0) {}
  ~BareProtocol() override {
    StopThread();
    WaitThreadExit();
  }
  std::int32_t Received() const { return m_received.Get(); }

 protected:
  std::int32_t VGetOnePkgLen(const void*, std::int32_t count, const FTLinkInfo*) override {
    m_received.Add(count);
    return count;
  }

 private:
  CFTLockedValue<std::int32_t> m_received;
};

TEST(SockIf, AProtocolWithoutCallbacksRuns) {
  ManualClock clock;
  ScriptedServer server;
  BareProtocol protocol;
  ASSERT_EQ(protocol.StartThread(0), 0);
  ASSERT_TRUE(WaitUntil([&] { return protocol.IsRunning() == 1; }, 10s));
  const std::string id = protocol.Connect(server.Host(), server.Port());
  Peer peer = server.Accept(10s);
  ASSERT_TRUE(WaitUntil([&] { return protocol.IsLinkUp(id) == 1; }, 10s));
  peer.SendRaw("12345");
  EXPECT_TRUE(WaitUntil([&] { return protocol.Received() >= 5; }, 10s));
  EXPECT_EQ(protocol.SendPkg(id, NewBuffer("reply"), &ReleaseFTBuffer, 0, 1, 1), 0);
  EXPECT_EQ(peer.ReceiveExactly(5, 10s), "reply");
  clock.Advance(20000);
  EXPECT_FALSE(peer.ReceiveExactly(1, 1200ms)) << "a heartbeat that nobody made";
  peer.Close();
  EXPECT_TRUE(WaitUntil([&] { return protocol.IsLinkUp(id) == 0; }, 10s));
}

}  // namespace
}  // namespace testkit
