// What goes out on a link: pieces, order, limits, heartbeats and reports of room.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/answering_server.h"
#include "tests/support/manual_clock.h"
#include "tests/support/release_counter.h"
#include "tests/support/socket_faults.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

constexpr std::int32_t kQueueLimit = 200000000;

// A package of this length whose bytes do not matter: its memory is never touched.
CFTBuffer* NewEmptyBuffer(std::int32_t length) {
  auto buffer = std::make_unique<CFTBuffer>(static_cast<std::uint32_t>(length));
  buffer->CommitWrite(length);
  return buffer.release();
}

class SendThread : public testing::Test {
 protected:
  TestProtocol::OpenedLink Open() {
    m_protocol.Start();
    return m_protocol.OpenLink(m_server);
  }

  std::int32_t SendRaw(const std::string& id, const Bytes& bytes, std::int32_t priority = 3) {
    return m_protocol.SendPkg(id, NewBuffer(bytes), &ReleaseFTBuffer, 0, 1, priority);
  }

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

TEST_F(SendThread, PackagesGoOutInPiecesOfAtMost10240Bytes) {
  auto link = Open();
  const Bytes package = PatternBody(30000);
  const ReleaseCounter released;
  std::vector<std::size_t> asked;
  {
    const SocketFaults faults;
    ASSERT_EQ(m_protocol.SendPkg(link.id, NewBuffer(package), &ReleaseCounter::Release, 0, 1, 3),
              0);
    EXPECT_EQ(link.peer.ReceiveExactly(package.size(), 10s), package);
    EXPECT_TRUE(released.Reaches(1, 10s));
    for (const SocketCall& call : faults.Sends()) asked.push_back(call.asked);
  }
  EXPECT_EQ(asked, (std::vector<std::size_t>{10240, 10240, 9520}));
}

TEST_F(SendThread, APartialWriteContinuesAtTheRightByte) {
  auto link = Open();
  const Bytes first = PatternBody(30000, 1);
  const Bytes second = PatternBody(5000, 2);
  SocketFaults faults;
  faults.SendAtMost(4000);
  faults.FailSends(EAGAIN, 3);
  faults.FailSends(EINTR, 4);
  ASSERT_EQ(SendRaw(link.id, first), 0);
  ASSERT_EQ(SendRaw(link.id, second), 0);
  EXPECT_EQ(link.peer.ReceiveExactly(first.size() + second.size(), 10s), first + second);
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  std::size_t rest = first.size() + second.size();
  for (const SocketCall& call : faults.Sends()) {
    const std::size_t of_package = rest > second.size() ? rest - second.size() : rest;
    EXPECT_EQ(call.asked, std::min<std::size_t>(of_package, 10240)) << rest << " bytes left";
    if (call.result > 0) rest -= static_cast<std::size_t>(call.result);
  }
  EXPECT_EQ(rest, 0U);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
}

TEST_F(SendThread, AFullSocketBufferDelaysAndLosesNothing) {
  m_protocol.Start();
  ScriptedServer slow(4096);
  auto link = m_protocol.OpenLink(slow);
  constexpr int kPackages = 8;
  for (int i = 0; i < kPackages; ++i) {
    ASSERT_EQ(m_protocol.Send(link.id, PatternBody(500000, static_cast<std::uint32_t>(i))), 0);
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  EXPECT_GE(m_protocol.State().queued_send_bytes.Get(), 3000000);
  for (int i = 0; i < kPackages; ++i) {
    const auto body = link.peer.ReceivePackage(10s);
    ASSERT_TRUE(body) << i;
    EXPECT_TRUE(*body == PatternBody(500000, static_cast<std::uint32_t>(i))) << i;
  }
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

// While a blocker waits for the socket, everything else collects in the queue.
TEST_F(SendThread, PriorityDecidesAndEqualsKeepTheirOrder) {
  m_protocol.Start();
  ScriptedServer slow(4096);
  auto link = m_protocol.OpenLink(slow);
  const Bytes blocker = PatternBody(2000000);
  ASSERT_EQ(m_protocol.Send(link.id, blocker, 1), 0);
  const struct {
    const char* body;
    std::int32_t priority;
  } queued[] = {{"3a", 3}, {"1a", 1},  {"5a", 5}, {"9 is 5", 9}, {"0 is 1", 0},
                {"3b", 3}, {"1b", -7}, {"4a", 4}, {"2a", 2},     {"5b", 5}};
  for (const auto& package : queued) {
    ASSERT_EQ(m_protocol.Send(link.id, package.body, package.priority), 0);
  }
  EXPECT_EQ(link.peer.ReceivePackage(10s), blocker);
  for (const char* body : {"1a", "0 is 1", "1b", "2a", "3a", "3b", "4a", "5a", "9 is 5", "5b"}) {
    EXPECT_EQ(link.peer.ReceivePackage(10s), body);
  }
}

TEST_F(SendThread, AFailedSendEndsTheLinkAndItsPackagesAreReleasedOnce) {
  auto link = Open();
  const ReleaseCounter released;
  {
    SocketFaults faults;
    faults.FailSends(EPIPE, 1);
    for (int i = 0; i < 3; ++i) {
      m_protocol.SendPkg(link.id, NewBuffer("lost"), &ReleaseCounter::Release, 0, 1, 3);
    }
    EXPECT_EQ(m_protocol.WaitClosed(), 4);
    for (const SocketCall& call : faults.Sends()) EXPECT_EQ(call.error, EPIPE);
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 0);
  const auto lines = m_protocol.LinesWith("Link down");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "Link down with[127.0.0.1]: Send error, SslErrCode[0]\n");
  EXPECT_EQ(lines[0].level_code, -1);
}

// An idle thread looks every half second; without being woken this would take it ten seconds.
TEST_F(SendThread, AQueuedPackageWakesAnIdleThread) {
  auto link = Open();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    std::this_thread::sleep_for(10ms);  // so that it is idle again
    ASSERT_EQ(m_protocol.Send(link.id, "at once"), 0);
    ASSERT_EQ(link.peer.ReceivePackage(10s), "at once");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(SendThread, AManySidedRaceOfSendersLosesAndDoublesNothing) {
  constexpr int kSenders = 4;
  constexpr int kPackages = 250;
  EchoServer echo;
  m_protocol.Start();
  const std::string id = m_protocol.Connect(echo.Host(), echo.Port());
  ASSERT_TRUE(m_protocol.WaitFor(LinkEvent::Kind::kConnected));
  std::vector<std::thread> senders;
  for (int sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([&, sender] {
      for (int i = 0; i < kPackages; ++i) {
        const std::string text = std::to_string(sender) + std::to_string(1000 + i);
        EXPECT_EQ(m_protocol.Send(id, text, sender), 0);
      }
    });
  }
  for (std::thread& sender : senders) sender.join();
  std::vector<int> next(kSenders, 0);
  for (int i = 0; i < kSenders * kPackages; ++i) {
    const auto body = m_protocol.ReceivePackage();
    ASSERT_TRUE(body && body->size() == 5);
    const auto sender = static_cast<std::size_t>(body->front() - '0');
    EXPECT_EQ(body->substr(1), std::to_string(1000 + next[sender]++)) << "of sender " << sender;
  }
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

// The link's socket takes nothing while this many calls are left.
class SendThreadThatCannotSend : public SendThread {
 protected:
  TestProtocol::OpenedLink Open() {
    auto link = SendThread::Open();
    m_faults = std::make_unique<SocketFaults>();
    m_faults->FailSends(EAGAIN, kCalls);
    return link;
  }

  std::int32_t Queue(const std::string& id, std::int32_t length, std::int32_t force) {
    return m_protocol.SendPkg(id, NewEmptyBuffer(length), &ReleaseFTBuffer, force, 1, 3);
  }

  void TearDown() override {
    EXPECT_GT(m_faults->PendingFailures(), 0) << "something was sent: the test saw nothing";
    m_protocol.Stop();
  }

  static constexpr int kCalls = 2000000;
  std::unique_ptr<SocketFaults> m_faults;
};

TEST_F(SendThreadThatCannotSend, AQueueTakesItsLimitAndMoreOnlyByForce) {
  auto link = Open();
  ASSERT_EQ(Queue(link.id, kQueueLimit - 10, 0), 0);
  EXPECT_EQ(Queue(link.id, 11, 0), 1);
  EXPECT_EQ(Queue(link.id, 10, 0), 0);
  EXPECT_EQ(Queue(link.id, 1, 0), 1);
  EXPECT_EQ(Queue(link.id, 11, 1), 0);
  EXPECT_EQ(m_protocol.State().queued_send_bytes.Get(), kQueueLimit + 11);
}

TEST_F(SendThreadThatCannotSend, AnUnusedQueueTakesAFirstPackageOfAnySize) {
  auto link = Open();
  EXPECT_EQ(Queue(link.id, kQueueLimit + 1, 0), 0);
  EXPECT_EQ(Queue(link.id, 1, 0), 1);
}

TEST_F(SendThreadThatCannotSend, RoomIsReportedBelowFourFifthsOfTheLimitOnly) {
  auto link = Open();
  const auto passes = [&] { return m_faults->Sends().size(); };
  ASSERT_EQ(Queue(link.id, 160000000, 0), 0);
  ASSERT_TRUE(WaitUntil([&] { return passes() > 20; }, 10s));
  for (const SpaceReport& report : m_protocol.Spaces().All()) {
    EXPECT_EQ(report.free_bytes, kQueueLimit) << "reports of the empty queue excepted";
  }

  auto second = m_protocol.OpenLink(m_server);
  ASSERT_EQ(Queue(second.id, 159999999, 0), 0);
  EXPECT_TRUE(WaitUntil(
      [&] {
        const auto report = m_protocol.Spaces().Take(10s);
        return report && report->link_id == second.id && report->free_bytes == 40000001 &&
               report->limit == kQueueLimit;
      },
      10s));
}

TEST_F(SendThread, AnIdleLinkReportsItsRoomAboutTwiceASecond) {
  auto link = Open();
  std::vector<SpaceReport> reports;
  for (int i = 0; i < 5; ++i) {
    const auto report = m_protocol.Spaces().Take(10s);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->link_id, link.id);
    EXPECT_EQ(report->free_bytes, kQueueLimit);
    EXPECT_EQ(report->limit, kQueueLimit);
    reports.push_back(*report);
  }
  EXPECT_GE(reports[4].time - reports[0].time, 1500ms);
}

class Heartbeats : public testing::TestWithParam<std::pair<EventMode, HeartbeatMode>> {
 protected:
  // Whether the protocol's own thread makes the heartbeats.
  static bool ByMessage() {
    return GetParam().first == EventMode::kByMessage &&
           GetParam().second == HeartbeatMode::kByMessage;
  }
};

TEST_P(Heartbeats, GoOutAfter15SecondsWithoutSending) {
  ManualClock clock;
  ScriptedServer server;
  TestProtocol protocol(GetParam().first, GetParam().second);
  protocol.Start();
  auto link = protocol.OpenLink(server);
  clock.Advance(14999);
  EXPECT_FALSE(link.peer.WaitForHeartbeats(1, 1200ms));  // two waits of the thread
  clock.Advance(1001);
  EXPECT_TRUE(link.peer.WaitForHeartbeats(1, 10s));

  link.peer.SendPackage("against the receive time-out");
  ASSERT_TRUE(protocol.ReceivePackage());
  clock.Advance(10000);
  ASSERT_EQ(protocol.Send(link.id, "busy"), 0);
  EXPECT_EQ(link.peer.ReceivePackage(10s), "busy");
  clock.Advance(14000);
  EXPECT_FALSE(link.peer.WaitForHeartbeats(2, 1200ms));
  clock.Advance(2000);
  EXPECT_TRUE(link.peer.WaitForHeartbeats(2, 10s));

  const auto calls = protocol.HeartbeatCalls().All();
  ASSERT_EQ(calls.size(), 2U);
  for (const HeartbeatCall& call : calls) {
    EXPECT_EQ(call.thread == protocol.GetThreadId(), ByMessage());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, Heartbeats,
    testing::Values(std::pair(EventMode::kByMessage, HeartbeatMode::kOnSendThread),
                    std::pair(EventMode::kByMessage, HeartbeatMode::kByMessage),
                    std::pair(EventMode::kDirect, HeartbeatMode::kOnSendThread),
                    std::pair(EventMode::kDirect, HeartbeatMode::kByMessage)));

TEST_F(SendThread, AHeartbeatPassesTheLimitsOfABacklog) {
  ManualClock clock;
  auto link = Open();
  m_protocol.State().send_backlog_limit.Set(0);
  EXPECT_EQ(m_protocol.Send(link.id, "refused"), 1);
  clock.Advance(16000);
  EXPECT_TRUE(link.peer.WaitForHeartbeats(1, 10s));
}

}  // namespace
}  // namespace testkit
