// What goes out on a link: pieces, order, limits, heartbeats and reports of room.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/release_counter.h"
#include "tests/support/socket_faults.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

constexpr std::int32_t kQueueLimit = 200000000;

class SendThread : public testing::Test {
 protected:
  void SetUp() override { m_protocol.Start(); }

  std::int32_t Send(const std::string& id, const Bytes& bytes, int release_on_failure = 1) {
    return m_protocol.SendPkg(id, NewBuffer(bytes), &ReleaseCounter::Release, 0, release_on_failure,
                              3);
  }

  // A package of this length whose bytes do not matter: its memory is never touched.
  std::int32_t SendNothing(const std::string& id, std::int32_t length, std::int32_t force = 0) {
    auto buffer = std::make_unique<CFTBuffer>(static_cast<std::uint32_t>(length));
    buffer->CommitWrite(length);
    return m_protocol.SendPkg(id, buffer.release(), &ReleaseCounter::Release, force, 1, 3);
  }

  ScriptedServer m_server;
  const ReleaseCounter m_released;
  TestProtocol m_protocol;
};

TEST_F(SendThread, PackagesGoOutInPiecesEachFromWhereTheLastEndedAndAreReleasedOnce) {
  auto link = m_protocol.OpenLink(m_server);
  const Bytes first = PatternBody(30000, 1);
  const Bytes second = PatternBody(5000, 2);
  const FTBufferPtr own(NewBuffer("mine"));
  SocketFaults faults;
  faults.SendAtMost(4000);
  faults.FailSends(EAGAIN, 3);
  faults.FailSends(EINTR, 4);
  ASSERT_EQ(Send(link.id, first, 0), 0);
  ASSERT_EQ(Send(link.id, second, 1), 0);
  ASSERT_EQ(m_protocol.SendPkg(link.id, own.get(), nullptr, 0, 1, 3), 0);
  EXPECT_EQ(link.peer.ReceiveExactly(35004, 10s), first + second + "mine");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  EXPECT_TRUE(m_released.Reaches(2, 10s)) << m_released.Count();
  std::size_t rest = 35004;
  for (const SocketCall& call : faults.Sends()) {
    const std::size_t of_package = rest > 5004 ? rest - 5004 : rest > 4 ? rest - 4 : rest;
    EXPECT_EQ(call.asked, std::min<std::size_t>(of_package, 10240)) << rest << " bytes left";
    if (call.result > 0) rest -= static_cast<std::size_t>(call.result);
  }
  EXPECT_EQ(rest, 0U);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  m_protocol.Stop();
  EXPECT_EQ(own->GetDataLen(), 0) << "without a release function it stays the sender's";
}

// While a blocker waits for the socket, everything else collects in the queue.
TEST_F(SendThread, AFullSocketDelaysAndLosesNothingAndPriorityDecidesWhatComesNext) {
  ScriptedServer slow(4096);
  auto link = m_protocol.OpenLink(slow);
  const Bytes blocker = PatternBody(4000000);
  ASSERT_EQ(m_protocol.Send(link.id, blocker, 1), 0);
  const std::pair<const char*, std::int32_t> queued[] = {
      {"3a", 3}, {"1a", 1}, {"9 is 5", 9}, {"0 is 1", 0}, {"3b", 3}, {"2a", 2}, {"5b", 5}};
  for (const auto& [body, priority] : queued) {
    ASSERT_EQ(m_protocol.Send(link.id, body, priority), 0);
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  EXPECT_GE(m_protocol.State().queued_send_bytes.Get(), 1000000);
  EXPECT_TRUE(link.peer.ReceivePackage(10s) == blocker);
  for (const char* body : {"1a", "0 is 1", "2a", "3a", "3b", "9 is 5", "5b"}) {
    EXPECT_EQ(link.peer.ReceivePackage(10s), body);
  }
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(SendThread, AFailedSendEndsTheLinkAndItsPackagesAreReleasedOnce) {
  auto link = m_protocol.OpenLink(m_server);
  {
    SocketFaults faults;
    faults.FailSends(EPIPE, 1);
    for (int i = 0; i < 3; ++i) Send(link.id, "lost");
    EXPECT_EQ(m_protocol.WaitClosed(), 4);
    EXPECT_EQ(faults.Sends().size(), 1U);
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 0);
  const char* const line = "Link down with[127.0.0.1]: Send error, SslErrCode[0]\n";
  EXPECT_EQ(m_protocol.LinesWith(line).size(), 1U);
  const FastClock towards_reaping(20);
  EXPECT_TRUE(m_released.Reaches(3, 10s)) << m_released.Count();
}

// An idle thread looks every half second; without being woken this would take it ten seconds.
TEST_F(SendThread, AQueuedPackageWakesAnIdleThread) {
  auto link = m_protocol.OpenLink(m_server);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    std::this_thread::sleep_for(10ms);  // so that it is idle again
    ASSERT_EQ(m_protocol.Send(link.id, "at once"), 0);
    ASSERT_EQ(link.peer.ReceivePackage(10s), "at once");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

// The sockets take nothing meanwhile.
TEST_F(SendThread, AQueueTakesItsLimitAndMoreOnlyByForceOrAsItsFirstPackage) {
  auto link = m_protocol.OpenLink(m_server);
  auto second = m_protocol.OpenLink(m_server);
  SocketFaults faults;
  faults.FailSends(EAGAIN, 2000000);
  ASSERT_EQ(SendNothing(link.id, kQueueLimit - 10), 0);
  EXPECT_EQ(SendNothing(link.id, 11), 1);
  EXPECT_EQ(SendNothing(link.id, 10), 0);
  EXPECT_EQ(SendNothing(link.id, 1), 1);
  EXPECT_EQ(SendNothing(link.id, 11, 1), 0);
  EXPECT_EQ(m_protocol.State().queued_send_bytes.Get(), kQueueLimit + 11);
  EXPECT_EQ(SendNothing(second.id, kQueueLimit + 1), 0);
  EXPECT_EQ(SendNothing(second.id, 1), 1);
  EXPECT_GT(faults.PendingFailures(), 0) << "something was sent: the test saw nothing";
  m_protocol.Stop();
}

TEST_F(SendThread, RoomIsReportedTwiceASecondBelowFourFifthsOfTheLimit) {
  auto link = m_protocol.OpenLink(m_server);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i) {
    const auto report = m_protocol.Spaces().Take(10s);
    ASSERT_TRUE(report && report->link_id == link.id);
    EXPECT_EQ(report->free_bytes, kQueueLimit);
    EXPECT_EQ(report->limit, kQueueLimit);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1000ms);

  SocketFaults faults;
  faults.FailSends(EAGAIN, 2000000);
  ASSERT_EQ(SendNothing(link.id, 160000000), 0);
  ASSERT_TRUE(WaitUntil([&] { return faults.Sends().size() > 20; }, 10s));  // passes of its thread
  while (const auto report = m_protocol.Spaces().Take(0ms)) {
    EXPECT_EQ(report->free_bytes, kQueueLimit) << "reports of the empty queue excepted";
  }
  auto second = m_protocol.OpenLink(m_server);
  ASSERT_EQ(SendNothing(second.id, 159999999), 0);
  EXPECT_TRUE(WaitUntil(
      [&] {
        const auto report = m_protocol.Spaces().Take(10s);
        return report && report->link_id == second.id && report->free_bytes == 40000001;
      },
      10s));
  EXPECT_GT(faults.PendingFailures(), 0) << "something was sent: the test saw nothing";
  m_protocol.Stop();
}

class Heartbeats : public testing::TestWithParam<std::pair<EventMode, HeartbeatMode>> {};

TEST_P(Heartbeats, GoOutAfter15SecondsWithoutSendingWhateverTheBacklog) {
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
  protocol.State().send_backlog_limit.Set(0);
  EXPECT_EQ(protocol.Send(link.id, "refused"), 1);
  clock.Advance(2000);
  EXPECT_TRUE(link.peer.WaitForHeartbeats(2, 10s));

  const auto calls = protocol.HeartbeatCalls().All();
  ASSERT_EQ(calls.size(), 2U);
  const bool by_message = GetParam() == std::pair(EventMode::kByMessage, HeartbeatMode::kByMessage);
  for (const HeartbeatCall& call : calls) {
    EXPECT_EQ(call.thread == protocol.GetThreadId(), by_message);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, Heartbeats,
    testing::Values(std::pair(EventMode::kByMessage, HeartbeatMode::kOnSendThread),
                    std::pair(EventMode::kByMessage, HeartbeatMode::kByMessage),
                    std::pair(EventMode::kDirect, HeartbeatMode::kOnSendThread),
                    std::pair(EventMode::kDirect, HeartbeatMode::kByMessage)));

}  // namespace
}  // namespace testkit
