// From connect to the link table, and out of it again.
#include <gtest/gtest.h>

#include <map>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/answering_server.h"
#include "tests/support/manual_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/release_counter.h"
#include "tests/support/socket_traits.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/test_protocol.h"
#include "tests/support/thread_limit.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

constexpr auto kAWhile = 300ms;  // for what must not happen

TEST(Engine, ADelayedConnectStartsOnceItsDelayIsOver) {
  ManualClock clock;
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  const std::string id = protocol.Connect(server.Host(), server.Port(), 0, 0, nullptr, 0, 3);
  const std::string later = protocol.Connect(server.Host(), server.Port(), 0, 0, nullptr, 0, 4);
  clock.Advance(2999);
  EXPECT_FALSE(server.TryAccept(kAWhile));
  clock.Advance(1000);
  EXPECT_TRUE(server.TryAccept(10s));
  EXPECT_EQ(protocol.WaitFor(Kind::kConnected)->link.link_id, id);
  clock.Advance(1000);
  EXPECT_TRUE(server.TryAccept(10s));
  EXPECT_EQ(protocol.WaitFor(Kind::kConnected)->link.link_id, later);
}

TEST(Engine, ClosingADelayedConnectReportsItAsFailedAndItNeverStarts) {
  ManualClock clock;
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  const std::string id = protocol.Connect(server.Host(), server.Port(), 5, 6, nullptr, 0, 3);
  protocol.CloseLink(id, 1);
  const auto failed = protocol.WaitFor(Kind::kConnectFailed);
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->link.link_id, id);
  EXPECT_EQ(failed->link.user_value1, 5U);
  clock.Advance(5000);
  EXPECT_FALSE(server.TryAccept(kAWhile));
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

TEST(Engine, ClosingALinkEndsItAtOnceWithALineAndTheReason) {
  const ManualClock no_reaping;
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  auto link = protocol.OpenLink(server);
  EXPECT_EQ(protocol.IsLinkUp(link.id), 1);
  protocol.CloseLink(link.id, 0);
  protocol.CloseLink(link.id, 0);
  EXPECT_EQ(protocol.WaitClosed(), 6);
  EXPECT_EQ(protocol.IsLinkUp(link.id), 0);
  EXPECT_NE(link.peer.WaitClosed(10s), LinkEnd::kStillOpen);
  const auto lines = protocol.LinesWith("Link down");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "Link down with[127.0.0.1]: I close it.\n");
  EXPECT_EQ(lines[0].source, "ftmtsockimpl.cpp");
  EXPECT_EQ(lines[0].line, 333);
  EXPECT_EQ(lines[0].level_code, -1);
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

TEST(Engine, PackagesOfALinkClosedAtOnceAreReleasedUnsent) {
  ScriptedServer slow(4096);
  TestProtocol protocol;
  protocol.Start();
  auto link = protocol.OpenLink(slow);
  const ReleaseCounter released;
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(protocol.SendPkg(link.id, NewBuffer(PatternBody(1000000)), &ReleaseCounter::Release,
                               0, 1, 1 + i % 5),
              0);
  }
  protocol.CloseLink(link.id, 0);
  EXPECT_EQ(protocol.WaitClosed(), 6);
  EXPECT_LT(released.Count(), 10);
  EXPECT_GE(protocol.State().queued_send_bytes.Get(), 8000000);
  protocol.Stop();
}

// On an accepted link: closing one of our own connects resets it, and what the system has taken
// but not yet delivered is lost with it.
TEST(Engine, ClosingAfterSendingSendsEverythingFirst) {
  const ManualClock no_reaping;
  const Bytes large = PatternBody(30000000);  // more than the system takes from us
  TestProtocol protocol;
  protocol.Start();
  std::uint16_t port = 0;
  ASSERT_NE(protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  Peer peer = Peer::Connect(port, 10s);
  const auto accepted = protocol.WaitFor(Kind::kAccepted);
  ASSERT_TRUE(accepted);
  const std::string& id = accepted->link.link_id;
  ASSERT_EQ(protocol.Send(id, large, 1), 0);
  ASSERT_EQ(protocol.Send(id, "second"), 0);
  ASSERT_EQ(protocol.Send(id, "third"), 0);
  protocol.CloseLink(id, 1);
  EXPECT_FALSE(WaitUntil([&] { return protocol.IsLinkUp(id) == 0; }, kAWhile));
  EXPECT_EQ(protocol.Send(id, "late"), 0) << "a link stays up until everything is sent";
  const auto first = peer.ReceiveExactly(kHeaderSize + large.size(), 20s);
  ASSERT_TRUE(first);
  EXPECT_TRUE(*first == BuildPackage(large));
  for (const char* body : {"second", "third", "late"}) {
    EXPECT_EQ(peer.ReceivePackage(10s), body);
  }
  EXPECT_EQ(protocol.WaitClosed(), 6);
  EXPECT_EQ(peer.WaitClosed(10s), LinkEnd::kOrderly);
  EXPECT_EQ(protocol.LinesWith("Link down with[127.0.0.1]: I close it.\n").size(), 1U);
}

TEST(Engine, AnIdleLinkIsClosedAfterSendingToo) {
  const ManualClock no_reaping;
  ScriptedServer server;
  TestProtocol protocol;
  protocol.Start();
  auto link = protocol.OpenLink(server);
  protocol.CloseLink(link.id, 1);
  EXPECT_EQ(protocol.WaitClosed(), 6);
  EXPECT_NE(link.peer.WaitClosed(10s), LinkEnd::kStillOpen);
}

TEST(Engine, ALinkWithoutReceiveThreadIsReportedAndForgotten) {
  const LinkEnd reset = EndOfResetLinks();
  ScriptedServer server;
  const StderrCapture written;
  TestProtocol protocol;
  protocol.StartAlone();
  const std::size_t descriptors = CountDescriptors();
  const ThreadLimit none(0);
  const std::string id = protocol.Connect(server.Host(), server.Port());
  Peer peer = server.Accept(10s);
  const auto event = protocol.Events().Take(10s);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->kind, Kind::kConnectFailed);
  EXPECT_EQ(event->link.link_id, id);
  EXPECT_EQ(peer.WaitClosed(10s), reset);
  EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() == descriptors + 1; }, 10s));  // the peer's
  EXPECT_EQ(protocol.IsLinkUp(id), 0);
  EXPECT_EQ(none.RefusedCount(), 1);
  const auto lines = protocol.LinesWith("Create thread error");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, FormatString("Create thread error: current threads[%d]. "
                                        "One Connection[127.0.0.1:P%d] has closed now\n",
                                        TestProtocol::kThreads, server.Port()));
  EXPECT_EQ(lines[0].line, 172);
  EXPECT_EQ(lines[0].level_code, -1);
  EXPECT_TRUE(written.WaitForLine(",ftmtsockimpl,172,-2,>-1: Create thread error: current", 10s));
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

TEST(Engine, AnAcceptedLinkWithoutReceiveThreadIsNotReported) {
  TestProtocol protocol;
  protocol.StartAlone();
  std::uint16_t port = 0;
  ASSERT_NE(protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  const ThreadLimit none(0);
  Peer peer = Peer::Connect(port, 10s);
  EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
  const auto lines = protocol.LinesWith("Create thread error");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].text.find(FormatString("One Connection[127.0.0.1:M%d]", port)),
            std::string::npos);
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

TEST(Engine, ManyLinksAtOnceDoNotMixTheirPackages) {
  constexpr std::size_t kLinks = 50;
  constexpr std::size_t kPackages = 10;
  const HeldResources before;
  {
    EchoServer echo;
    TestProtocol protocol;
    protocol.Start();
    std::map<std::string, std::size_t> answers;
    for (std::size_t i = 0; i < kLinks; ++i) answers[protocol.Connect(echo.Host(), echo.Port())];
    for (std::size_t i = 0; i < kLinks; ++i) ASSERT_TRUE(protocol.WaitFor(Kind::kConnected));
    for (std::size_t k = 0; k < kPackages; ++k) {
      for (const auto& [id, count] : answers) {
        ASSERT_EQ(protocol.Send(id, id + PatternBody(300 * k)), 0);
      }
    }
    for (std::size_t i = 0; i < kLinks * kPackages; ++i) {
      const auto event = protocol.WaitFor(Kind::kPackage);
      ASSERT_TRUE(event) << "only " << i << " answers";
      const std::string& id = event->link.link_id;
      ASSERT_EQ(event->body, id + PatternBody(300 * answers[id]++));
    }
    for (const auto& [id, count] : answers) protocol.CloseLink(id, 0);
    for (std::size_t i = 0; i < kLinks; ++i) EXPECT_EQ(protocol.WaitClosed(), 6);
    EXPECT_TRUE(echo.WaitForOpenLinks(0, 10s));
    EXPECT_TRUE(protocol.CountersReturnToZero());
    protocol.Stop();
    EXPECT_EQ(protocol.Events().Count(), 0U);
  }
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

}  // namespace
}  // namespace testkit
