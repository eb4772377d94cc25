// Which thread runs which callback.
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>

#include "tests/support/test_protocol.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

TEST(EventMode, ByMessageEverythingRunsOnTheProtocolsThread) {
  ScriptedServer server;
  TestProtocol protocol(EventMode::kByMessage);
  protocol.Start();
  const std::uint32_t own = protocol.GetThreadId();
  protocol.Connect(server.Host(), server.Port());
  Peer peer = server.Accept(10s);
  peer.SendPackage("hello");
  for (const Kind kind : {Kind::kConnected, Kind::kPackage}) {
    const auto event = protocol.WaitFor(kind);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->thread, own);
  }
  const auto report = protocol.Spaces().Take(10s);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->thread, own);
  peer.Close();
  const auto closed = protocol.WaitFor(Kind::kClosed);
  ASSERT_TRUE(closed);
  EXPECT_EQ(closed->thread, own);
}

TEST(EventMode, DirectPackagesAndReportsRunOnTheLinksThreads) {
  ScriptedServer server;
  TestProtocol protocol(EventMode::kDirect);
  protocol.Start();
  const std::uint32_t own = protocol.GetThreadId();
  protocol.Connect(server.Host(), server.Port());
  Peer peer = server.Accept(10s);
  const auto connected = protocol.WaitFor(Kind::kConnected);
  ASSERT_TRUE(connected);
  EXPECT_EQ(connected->thread, own);

  peer.SendPackage("hello");
  const auto received = protocol.WaitFor(Kind::kPackage);
  const auto report = protocol.Spaces().Take(10s);
  peer.Close();
  const auto closed = protocol.WaitFor(Kind::kClosed);
  ASSERT_TRUE(received && report && closed);
  EXPECT_NE(received->thread, own);
  EXPECT_EQ(closed->thread, received->thread);
  EXPECT_NE(report->thread, own);
  EXPECT_NE(report->thread, received->thread);
  EXPECT_EQ(closed->reason, 2);
}

TEST(EventMode, AFailedConnectIsReportedOnTheProtocolsThreadInBothModes) {
  for (const EventMode mode : {EventMode::kByMessage, EventMode::kDirect}) {
    TestProtocol protocol(mode);
    protocol.Start();
    protocol.Connect("0.0.0.0", 1);
    const auto failed = protocol.WaitFor(Kind::kConnectFailed);
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->thread, protocol.GetThreadId());
  }
}

// A protocol's thread that is busy does not keep direct callbacks from running.
TEST(EventMode, DirectCallbacksOfTwoLinksRunAtTheSameTime) {
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
  EXPECT_TRUE(entered.WaitFor(2, 10s));
}

TEST(EventMode, DirectlyDeliveredPackagesCanBeAnsweredAndKept) {
  ScriptedServer server;
  TestProtocol protocol(EventMode::kDirect);
  Mailbox<CFTBuffer*> kept;
  protocol.On().received = [&](const FTLinkInfo& link, CFTBuffer* pkg, std::int32_t* keep) {
    if (pkg->GetDataLen() % 2 == 0) {
      *keep = 1;
      kept.Push(pkg);
    }
    EXPECT_EQ(protocol.Send(link.link_id, "answer"), 0);
  };
  protocol.Start();
  auto link = protocol.OpenLink(server);
  for (std::size_t size = 0; size < 6; ++size) link.peer.SendPackage(PatternBody(size));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(link.peer.ReceivePackage(10s), "answer");
  for (std::int32_t size = 0; size < 6; size += 2) {
    const auto pkg = kept.Take(10s);
    ASSERT_TRUE(pkg);
    EXPECT_EQ((*pkg)->GetDataLen(), static_cast<std::int32_t>(kHeaderSize) + size);
    ReleaseFTBuffer(*pkg);
  }
  EXPECT_TRUE(protocol.CountersReturnToZero());
}

// By message nobody is left to hear of it.
TEST(EventMode, DirectLinksReportTheirEndWhenTheEngineStops) {
  ScriptedServer server;
  TestProtocol protocol(EventMode::kDirect);
  protocol.Start();
  auto first = protocol.OpenLink(server);
  auto second = protocol.OpenLink(server);
  protocol.Stop();
  std::set<std::string> closed_ids;
  for (const LinkEvent& event : protocol.Events().All()) {
    EXPECT_EQ(event.kind, Kind::kClosed);
    EXPECT_EQ(event.reason, 0);
    closed_ids.insert(event.link.link_id);
  }
  EXPECT_EQ(protocol.Events().Count(), 2U);
  EXPECT_EQ(closed_ids, (std::set<std::string>{first.id, second.id}));
}

}  // namespace
}  // namespace testkit
