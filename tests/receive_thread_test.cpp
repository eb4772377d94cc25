// What arrives on a link: cut, delivered in order and counted, or the end of the link.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <random>
#include <vector>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/answering_server.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/socket_faults.h"
#include "tests/support/test_protocol.h"
#include "tests/support/thread_limit.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = LinkEvent::Kind;

constexpr std::uint32_t kMaxPackage = 0x500000;

class ReceiveThread : public testing::Test {
 protected:
  TestProtocol::OpenedLink Open() {
    m_protocol.Start();
    return m_protocol.OpenLink(m_server);
  }

  // The link was reported as closed once, for this reason, and the text was the only line about it.
  void ExpectClosed(const std::string& id, std::int32_t reason, const std::string& line) {
    const auto closed = m_protocol.WaitFor(Kind::kClosed);
    ASSERT_TRUE(closed);
    EXPECT_EQ(closed->link.link_id, id);
    EXPECT_EQ(closed->reason, reason);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    const auto lines = m_protocol.LinesWith("Link down");
    ASSERT_EQ(lines.size(), line.empty() ? 0U : 1U);
    if (line.empty()) return;
    EXPECT_EQ(lines[0].text, "Link down with[127.0.0.1]: " + line + "\n");
    EXPECT_EQ(lines[0].source, "ftmtsockimpl.cpp");
    EXPECT_EQ(lines[0].level_code, -1);
  }

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

TEST_F(ReceiveThread, PackagesArriveInOrderHoweverTheStreamIsSplit) {
  auto link = Open();
  std::mt19937 random(4711);
  std::vector<Bytes> bodies;
  Bytes stream;
  // Around the regular buffer's 2,048 bytes, header included, and anything else.
  const std::size_t sizes[] = {0, 1, 2035, 2036, 2037, 3000, 4096, 20000};
  for (const std::size_t size : sizes) {
    bodies.push_back(PatternBody(size));
  }
  for (int i = 0; i < 60; ++i)
    bodies.push_back(PatternBody(random() % 5000, static_cast<std::uint32_t>(i)));
  for (const Bytes& body : bodies) stream += BuildPackage(body);
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t piece = 1 + random() % (random() % 4 == 0 ? 20 : 6000);
    link.peer.SendInPieces(stream.substr(at, piece), piece);
    at += piece;
  }
  for (std::size_t i = 0; i < bodies.size(); ++i) {
    ASSERT_EQ(m_protocol.ReceivePackage(), bodies[i]) << "package " << i;
  }
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(ReceiveThread, SingleBytesMakePackagesToo) {
  auto link = Open();
  SocketFaults faults;
  faults.ReceiveAtMost(1);
  const Bytes large = PatternBody(2500);
  link.peer.SendRaw(BuildPackage("a") + BuildPackage("") + BuildPackage(large) + BuildPackage("b"));
  for (const Bytes& body : {Bytes("a"), Bytes(), large, Bytes("b")}) {
    EXPECT_EQ(m_protocol.ReceivePackage(), body);
  }
}

TEST_F(ReceiveThread, BigTransfersStayIntactBothWays) {
  EchoServer echo;
  m_protocol.Start();
  SocketFaults faults;
  faults.SendAtMost(7777);
  faults.ReceiveAtMost(3333);
  const std::string id = m_protocol.Connect(echo.Host(), echo.Port());
  ASSERT_TRUE(m_protocol.WaitFor(Kind::kConnected));
  const std::size_t sizes[] = {1500000, 100, 999999, 2500000, 2036, 0, 1};
  for (const std::size_t size : sizes) ASSERT_EQ(m_protocol.Send(id, PatternBody(size)), 0);
  for (const std::size_t size : sizes) {
    const auto body = m_protocol.ReceivePackage();
    ASSERT_TRUE(body) << size;
    EXPECT_TRUE(*body == PatternBody(size)) << size;
  }
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(ReceiveThread, InterruptedCallsAreNoBrokenLinks) {
  auto link = Open();
  SocketFaults faults;
  faults.FailReceives(EINTR, 5);
  faults.FailReceives(EAGAIN, 3);
  faults.FailPolls(EINTR, 5);
  for (int i = 0; i < 20; ++i) link.peer.SendPackage(PatternBody(100));
  for (int i = 0; i < 20; ++i) EXPECT_EQ(m_protocol.ReceivePackage(), PatternBody(100));
  EXPECT_EQ(faults.PendingFailures(), 0);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
}

TEST_F(ReceiveThread, APeerThatClosesOrResetsEndsTheLinkWithoutALine) {
  auto link = Open();
  link.peer.SendPackage("last words");
  ASSERT_EQ(m_protocol.ReceivePackage(), "last words");
  link.peer.Close();
  ExpectClosed(link.id, 2, "");

  auto second = m_protocol.OpenLink(m_server);
  second.peer.Reset();
  ExpectClosed(second.id, 2, "");

  auto half = m_protocol.OpenLink(m_server);
  half.peer.SendRaw(BuildPackage(PatternBody(3000)).substr(0, 2500));
  half.peer.StopSending();
  ExpectClosed(half.id, 2, "");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(ReceiveThread, AFailedReceiveEndsTheLink) {
  auto link = Open();
  SocketFaults faults;
  faults.FailReceives(ETIMEDOUT, 1);
  link.peer.SendPackage("never read");
  ExpectClosed(link.id, 2, "");
}

TEST_F(ReceiveThread, PackagesJustBelowTheLargestLengthAreTaken) {
  auto link = Open();
  const Bytes body = PatternBody(kMaxPackage - 1 - kHeaderSize);
  link.peer.SendPackage(body);
  const auto received = m_protocol.ReceivePackage();
  ASSERT_TRUE(received);
  EXPECT_TRUE(*received == body);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
}

TEST_F(ReceiveThread, APackageOfTheLargestLengthEndsTheLink) {
  auto link = Open();
  link.peer.SendRaw(BuildHeader(kMaxPackage - kHeaderSize, "sums"));
  ExpectClosed(link.id, 5, "Pkg is too big.");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

// Both packages come in one read; the good one is cut but the loop ends before it is delivered.
TEST_F(ReceiveThread, AProtocolErrorDropsTheGoodPackagesOfTheSameRead) {
  auto link = Open();
  link.peer.SendPackage("before");
  ASSERT_EQ(m_protocol.ReceivePackage(), "before");
  link.peer.SendRaw(BuildPackage("good") + BuildHeader(0x7FFFFFFF, "sums"));
  const auto event = m_protocol.Events().Take(10s);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->kind, Kind::kClosed);
  EXPECT_EQ(event->reason, 5);
  EXPECT_EQ(m_protocol.LinesWith("Link down with[127.0.0.1]: protocol is error.\n").size(), 1U);
  EXPECT_EQ(m_protocol.LinesWith("Recv msg count[1] from[127.0.0.1]\n").size(), 2U);
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  m_protocol.Stop();
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

// The engine ends the link while its receive thread is about to find a fault of its own.
TEST_F(ReceiveThread, TheFirstReasonStands) {
  m_protocol.On().package_length = [&](const unsigned char*, std::int32_t) {
    m_protocol.CloseLink("01000000", 0);
    EXPECT_TRUE(WaitUntil([&] { return m_protocol.IsLinkUp("01000000") == 0; }, 10s));
    return -1;
  };
  auto link = Open();
  link.peer.SendRaw("no package");
  ExpectClosed(link.id, 6, "I close it.");
}

TEST_F(ReceiveThread, APackageWhoseLengthGrowsWhileItIsAssembledEndsTheLink) {
  m_protocol.On().package_length = [](const unsigned char*, std::int32_t count) {
    return count < 3000 ? 3000 : 3001;
  };
  auto link = Open();
  link.peer.SendRaw(Bytes(3000, 'x'));
  ExpectClosed(link.id, 8, "VGetOnePkgLen is error.");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(ReceiveThread, APackageWhoseLengthShrinksLeavesItsRestToTheNextOne) {
  m_protocol.On().package_length = [](const unsigned char* data, std::int32_t count) {
    if (count == 0) return 0;
    if (data[0] == 'y') return count < 510 ? 510 : count;
    return count < 3000 ? 3000 : 2500;
  };
  auto link = Open();
  link.peer.SendRaw(Bytes(2500, 'x') + Bytes(500, 'y'));
  ASSERT_EQ(m_protocol.ReceivePackage(), Bytes(2500 - kHeaderSize, 'x'));
  link.peer.SendRaw(Bytes(10, 'z'));
  EXPECT_EQ(m_protocol.ReceivePackage(), Bytes(500 - kHeaderSize, 'y') + Bytes(10, 'z'));
}

TEST_F(ReceiveThread, CountLinesTellHowManyPackagesEachReadHeld) {
  auto link = Open();
  const Bytes three = BuildPackage("three");
  link.peer.SendRaw(BuildPackage("one") + BuildPackage("two") + three.substr(0, 5));
  ASSERT_EQ(m_protocol.ReceivePackage(), "one");
  ASSERT_EQ(m_protocol.ReceivePackage(), "two");
  link.peer.SendRaw(three.substr(5, 2));
  const auto counted = [&](int packages) {
    const std::string text = FormatString("Recv msg count[%d] from[127.0.0.1]\n", packages);
    return [this, text] { return m_protocol.LinesWith(text).size() == 1; };
  };
  EXPECT_TRUE(WaitUntil(counted(2), 10s));
  EXPECT_TRUE(WaitUntil(counted(0), 10s));
  EXPECT_EQ(m_protocol.State().undelivered_recv_bytes.Get(), 7);
  link.peer.SendRaw(three.substr(7));
  EXPECT_EQ(m_protocol.ReceivePackage(), "three");
  EXPECT_TRUE(WaitUntil(counted(1), 10s));
}

TEST_F(ReceiveThread, SilenceOfMoreThan35SecondsEndsTheLink) {
  ManualClock clock;
  auto link = Open();
  clock.Advance(34000);
  link.peer.SendPackage("awake");
  ASSERT_EQ(m_protocol.ReceivePackage(), "awake");
  clock.Advance(35000);
  EXPECT_EQ(link.peer.WaitClosed(1200ms), LinkEnd::kStillOpen);  // two waits of the thread
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  const FastClock runs_on(20);
  ExpectClosed(link.id, 1, "Recv timeout.");
}

TEST_F(ReceiveThread, APeerWithShortPausesIsNeverTimedOut) {
  ManualClock clock;
  auto link = Open();
  for (int i = 0; i < 10; ++i) {
    clock.Advance(30000);
    link.peer.SendRaw("\1");
    ASSERT_TRUE(
        WaitUntil([&] { return m_protocol.State().undelivered_recv_bytes.Get() == i + 1; }, 10s));
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
}

TEST_F(ReceiveThread, WhatIsNeverDeliveredIsNotCountedForEver) {
  auto link = Open();
  link.peer.SendRaw(BuildPackage(PatternBody(100000)).substr(0, 70000));
  ASSERT_TRUE(
      WaitUntil([&] { return m_protocol.State().undelivered_recv_bytes.Get() == 70000; }, 10s));
  auto small = m_protocol.OpenLink(m_server);
  small.peer.SendRaw(BuildPackage("abc").substr(0, 14));
  ASSERT_TRUE(
      WaitUntil([&] { return m_protocol.State().undelivered_recv_bytes.Get() == 70014; }, 10s));
  link.peer.Reset();
  m_protocol.CloseLink(small.id, 0);
  ASSERT_TRUE(m_protocol.WaitClosed());
  ASSERT_TRUE(m_protocol.WaitClosed());
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

// A link with half a package and 25,000,000 bytes undelivered waits two seconds before it reads on.
class Throttle : public testing::Test {
 protected:
  steady_clock::duration TimeOfSecondHalf(TestProtocol& protocol, std::int32_t limit) {
    protocol.Start();
    auto link = protocol.OpenLink(m_server);
    auto& undelivered = protocol.State().undelivered_recv_bytes;
    protocol.State().recv_backlog_limit.Set(limit);
    undelivered.Add(25000000 - 6);
    const Bytes package = BuildPackage("first and second");
    link.peer.SendRaw(package.substr(0, 6));
    EXPECT_TRUE(WaitUntil([&] { return undelivered.Get() >= 25000000; }, 10s));
    const auto begin = steady_clock::now();
    link.peer.SendRaw(package.substr(6));
    EXPECT_EQ(protocol.ReceivePackage(), "first and second");
    const auto taken = steady_clock::now() - begin;
    undelivered.Add(-(25000000 - 6));
    EXPECT_TRUE(protocol.CountersReturnToZero());
    return taken;
  }

  ScriptedServer m_server;
};

TEST_F(Throttle, ReadingSlowsDownWhenTooMuchIsUndelivered) {
  TestProtocol protocol;
  EXPECT_GE(TimeOfSecondHalf(protocol, 25), 1800ms);
  const auto lines = protocol.LinesWith("MinResolveMillSec");
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0].text, "Recv MinResolveMillSec=[2000] of [127.0.0.1]\n");
  EXPECT_EQ(lines[0].level_code, 20);
}

TEST_F(Throttle, NotBelowTheLimitNorWithDirectEvents) {
  TestProtocol below;
  TimeOfSecondHalf(below, 26);
  EXPECT_TRUE(below.LinesWith("MinResolveMillSec").empty());
  TestProtocol direct(EventMode::kDirect);
  TimeOfSecondHalf(direct, 1);
  EXPECT_TRUE(direct.LinesWith("MinResolveMillSec").empty());
}

class NoSendThread : public ReceiveThread {
 protected:
  void ExpectTwoLines(const std::string& name) {
    ASSERT_TRUE(WaitUntil([&] { return m_protocol.LinesWith("Link down").size() == 1; }, 10s));
    const auto error = m_protocol.LinesWith("Create thread error");
    ASSERT_EQ(error.size(), 1U);
    // The new thread may get here before its starter has counted it.
    const auto expected = [&](int threads) {
      return FormatString(
          "Create thread error: current threads[%d]. One Connection[%s] has closed now\n", threads,
          name.c_str());
    };
    EXPECT_THAT(error[0].text, testing::AnyOf(expected(TestProtocol::kThreads),
                                              expected(TestProtocol::kThreads + 1)));
    EXPECT_EQ(error[0].level_code, -1);
    EXPECT_EQ(m_protocol.LinesWith("Link down")[0].text,
              "Link down with[127.0.0.1]: create thread failed.\n");
  }
};

TEST_F(NoSendThread, AnOutgoingLinkIsReportedAsFailedAndNothingElse) {
  m_protocol.StartAlone();
  std::string id;
  {
    const ThreadLimit one(1);
    id = m_protocol.Connect(m_server.Host(), m_server.Port());
    ExpectTwoLines(FormatString("127.0.0.1:P%d", m_server.Port()));
    EXPECT_EQ(one.RefusedCount(), 1);
  }
  Peer peer = m_server.Accept(10s);
  const auto event = m_protocol.Events().Take(10s);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->kind, Kind::kConnectFailed);
  EXPECT_EQ(event->link.link_id, id);
  EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
  const FastClock towards_reaping(20);
  EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
  EXPECT_TRUE(
      WaitUntil([] { return TestProtocol::GetThreadCount() == TestProtocol::kThreads; }, 10s));
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

TEST_F(NoSendThread, AnAcceptedLinkIsNotReported) {
  m_protocol.StartAlone();
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  const ThreadLimit one(1);
  Peer peer = Peer::Connect(port, 10s);
  ExpectTwoLines(FormatString("127.0.0.1:M%d", port));
  const FastClock towards_reaping(20);
  EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

}  // namespace
}  // namespace testkit
