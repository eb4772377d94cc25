// What goes out on a link: order, limits, refusals, heartbeats and reports of room.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "tests/support/dead_ports.h"
#include "tests/support/manual_clock.h"
#include "tests/support/release_counter.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kEngineLimit = 800000000;

class Sending : public testing::Test {
 protected:
  void SetUp() override { m_protocol.Start(); }

  ScriptedServer m_server;
  TestProtocol m_protocol;
};

// While a blocker waits for the socket, everything else collects in the queue.
TEST_F(Sending, AFullSocketDelaysAndLosesNothingAndPriorityDecidesWhatComesNext) {
  auto link = m_protocol.OpenLink(m_server);
  const Bytes blocker = PatternBody(12000000);
  ASSERT_EQ(m_protocol.Send(link.id, blocker, 1), 0);
  const std::pair<const char*, std::int32_t> queued[] = {
      {"3a", 3}, {"1a", 1}, {"9 is 5", 9}, {"0 is 1", 0}, {"3b", 3}, {"2a", 2}, {"5b", 5}};
  for (const auto& [body, priority] : queued) {
    ASSERT_EQ(m_protocol.Send(link.id, body, priority), 0);
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  EXPECT_GE(m_protocol.State().queued_send_bytes, 1000000);
  EXPECT_TRUE(link.peer.ReceivePackage(10s) == blocker);
  for (const char* body : {"1a", "0 is 1", "2a", "3a", "3b", "9 is 5", "5b"}) {
    EXPECT_EQ(link.peer.ReceivePackage(10s), body);
  }
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

// An idle thread looks every half second; without being woken this would take it ten seconds.
TEST_F(Sending, AQueuedPackageWakesAnIdleThread) {
  auto link = m_protocol.OpenLink(m_server);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    std::this_thread::sleep_for(10ms);  // so that it is idle again
    ASSERT_EQ(m_protocol.Send(link.id, "at once"), 0);
    ASSERT_EQ(link.peer.ReceivePackage(10s), "at once");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

// Refused packages: the release function runs exactly once when asked to, and otherwise never.
class Refusal : public Sending, public testing::WithParamInterface<FTOnRefusal> {
 protected:
  std::int32_t Try(const std::string& id, CFTBuffer* pkg, FTReleaseFunction release,
                   FTSendMode mode) {
    return m_protocol.SendPkg(id, pkg, release, mode, GetParam(), 3);
  }

  void ExpectRefused(const std::string& id, const Bytes& bytes, FTSendMode mode,
                     std::int32_t result) {
    const ReleaseCounter released;
    CFTBuffer* const pkg = NewBuffer(bytes);
    EXPECT_EQ(Try(id, pkg, &ReleaseCounter::Release, mode), result);
    EXPECT_EQ(released.Count(), static_cast<int>(GetParam()));
    if (GetParam() == FTOnRefusal::kRelease) return;
    EXPECT_EQ(pkg->GetDataLen(), static_cast<std::int32_t>(bytes.size()));
    ReleaseFTBuffer(pkg);
  }
};

TEST_P(Refusal, OfNoPackageOrWithoutALinkThatIsUp) {
  const auto link = m_protocol.OpenLink(m_server);
  EXPECT_EQ(Try(link.id, nullptr, &ReleaseCounter::Release, FTSendMode::kForced), kSendNoLink);
  ExpectRefused(link.id, "", FTSendMode::kForced, kSendNoLink);
  const FTBufferPtr empty(NewBuffer(""));
  EXPECT_EQ(Try(link.id, empty.get(), nullptr, FTSendMode::kWithinLimits), kSendNoLink);

  const FullBacklogPort mute;
  const std::string pending = m_protocol.Connect(mute.Host(), mute.Port());
  const std::string delayed = m_protocol.Connect(mute.Host(), mute.Port(), 0, 0, nullptr, 0, 60);
  auto closed = m_protocol.OpenLink(m_server);
  closed.peer.Close();
  ASSERT_TRUE(m_protocol.WaitClosed());
  for (const std::string& id : {std::string("FFFFFFFF"), pending, delayed, closed.id}) {
    SCOPED_TRACE("link " + id);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    ExpectRefused(id, "package", FTSendMode::kForced, kSendNoLink);
  }
}

TEST_P(Refusal, BeyondTheEnginesBacklogUnlessForced) {
  const auto link = m_protocol.OpenLink(m_server);
  auto& queued = m_protocol.State().queued_send_bytes;
  queued += kEngineLimit;
  ExpectRefused(link.id, "package", FTSendMode::kWithinLimits, kSendTooMuch);
  EXPECT_EQ(Try(link.id, NewBuffer("x"), &ReleaseFTBuffer, FTSendMode::kForced), kSendQueued);
  ASSERT_TRUE(WaitUntil([&] { return queued == kEngineLimit; }, 10s));
  queued -= 1;
  EXPECT_EQ(Try(link.id, NewBuffer("x"), &ReleaseFTBuffer, FTSendMode::kWithinLimits), 0);
  queued -= kEngineLimit - 1;
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

INSTANTIATE_TEST_SUITE_P(Both, Refusal, testing::Values(FTOnRefusal::kKeep, FTOnRefusal::kRelease));

// Ten of these packages are what a link's queue takes.
CFTBuffer* NewTenth() {
  auto buffer = std::make_unique<CFTBuffer>(20000000);
  std::memset(buffer->GetWritePos(), 'x', 20000000);
  buffer->CommitWrite(20000000);
  return buffer.release();
}

TestProtocol* g_sender = nullptr;
std::atomic<std::int32_t> g_next_result{-2};

void SendNext(CFTBuffer* buffer) {
  ReleaseFTBuffer(buffer);
  g_next_result = g_sender->SendPkg("01000000", NewTenth(), &ReleaseFTBuffer,
                                    FTSendMode::kWithinLimits, FTOnRefusal::kRelease, 3);
}

TEST_F(Sending, WhoSendsTheNextPackageWhenOneIsReleasedFindsRoomForIt) {
  auto link = m_protocol.OpenLink(m_server);
  g_sender = &m_protocol;
  const auto send = [&](FTReleaseFunction release) {
    return m_protocol.SendPkg(link.id, NewTenth(), release, FTSendMode::kWithinLimits,
                              FTOnRefusal::kRelease, 3);
  };
  ASSERT_EQ(send(&SendNext), kSendQueued);
  for (int i = 1; i < 10; ++i) ASSERT_EQ(send(&ReleaseFTBuffer), kSendQueued);
  ASSERT_EQ(m_protocol.SendPkg(link.id, NewTenth(), &ReleaseFTBuffer, FTSendMode::kForced,
                               FTOnRefusal::kRelease, 3),
            kSendQueued);
  ASSERT_EQ(send(&ReleaseFTBuffer), kSendTooMuch);
  // One that was forced is in the queue as well: two must be gone before the next one fits.
  std::thread reader([&] { link.peer.ReceiveExactly(20000000 + 4 * 20000000, 20s); });
  EXPECT_TRUE(WaitUntil([] { return g_next_result != -2; }, 20s));
  reader.join();
  m_protocol.Stop();
  g_sender = nullptr;
}

class Spaces : public testing::TestWithParam<FTEventMode> {};

// The link ends while one of its reports is under way.
TEST_P(Spaces, NoReportFollowsTheEndOfItsLink) {
  ScriptedServer server;
  TestProtocol protocol(GetParam());
  Mailbox<int> reporting;
  std::atomic<bool> reported{false};
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

TEST_P(Spaces, GoOnlyToProtocolsThatWantThem) {
  ScriptedServer server;
  TestProtocol protocol(GetParam(), FTHeartbeatMode::kOnSendThread, FTSpaceReports::kNone);
  protocol.Start();
  auto link = protocol.OpenLink(server);
  ASSERT_EQ(protocol.Send(link.id, "a pass of the send thread"), kSendQueued);
  ASSERT_TRUE(link.peer.ReceivePackage(10s));
  EXPECT_FALSE(protocol.Spaces().WaitFor(1, 600ms));
}

INSTANTIATE_TEST_SUITE_P(Both, Spaces,
                         testing::Values(FTEventMode::kByMessage, FTEventMode::kDirect));

class Heartbeats : public testing::TestWithParam<std::pair<FTEventMode, FTHeartbeatMode>> {};

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
  protocol.State().queued_send_bytes += kEngineLimit;
  EXPECT_EQ(protocol.Send(link.id, "refused"), kSendTooMuch);
  clock.Advance(2000);
  EXPECT_TRUE(link.peer.WaitForHeartbeats(2, 10s));

  const auto calls = protocol.HeartbeatCalls().All();
  ASSERT_EQ(calls.size(), 2U);
  const bool by_message =
      GetParam() == std::pair(FTEventMode::kByMessage, FTHeartbeatMode::kByMessage);
  for (const HeartbeatCall& call : calls) {
    EXPECT_EQ(call.thread == protocol.GetThreadId(), by_message);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, Heartbeats,
    testing::Values(std::pair(FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread),
                    std::pair(FTEventMode::kByMessage, FTHeartbeatMode::kByMessage),
                    std::pair(FTEventMode::kDirect, FTHeartbeatMode::kOnSendThread),
                    std::pair(FTEventMode::kDirect, FTHeartbeatMode::kByMessage)));

}  // namespace
}  // namespace testkit
