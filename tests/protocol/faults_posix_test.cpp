// What the system may do to a link: short and interrupted calls, full queues, no descriptors, no
// threads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/answering_server.h"
#include "tests/support/fast_clock.h"
#include "tests/support/posix/faults.h"
#include "tests/support/process_usage.h"
#include "tests/support/release_counter.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

constexpr std::int32_t kQueueLimit = 200000000;

class Faults : public testing::Test {
 protected:
  void SetUp() override { m_protocol.StartAlone(); }

  std::int32_t Send(const std::string& id, CFTBuffer* pkg,
                    FTSendMode mode = FTSendMode::kWithinLimits) {
    return m_protocol.SendPkg(id, pkg, &ReleaseCounter::Release, mode, FTOnRefusal::kRelease, 3);
  }

  // A package of this length whose bytes do not matter: its memory is never touched.
  static CFTBuffer* NewNothing(std::int32_t length) {
    auto buffer = std::make_unique<CFTBuffer>(static_cast<std::uint32_t>(length));
    buffer->CommitWrite(length);
    return buffer.release();
  }

  // Before the link's threads exist, so that all their calls meet it.
  void RefuseToSend() { m_faults.Fail(Call::kSend, EAGAIN, 2000000); }

  ScriptedServer m_server;
  const ReleaseCounter m_released;
  SocketFaults m_faults;
  TestProtocol m_protocol;
};

TEST_F(Faults, SingleBytesAndInterruptedCallsMakePackagesToo) {
  m_faults.AtMost(Call::kReceive, 1);
  m_faults.Fail(Call::kReceive, EINTR, 5);
  m_faults.Fail(Call::kReceive, EAGAIN, 3);
  m_faults.Fail(Call::kPoll, EINTR, 5);
  auto link = m_protocol.OpenLink(m_server);
  const Bytes large = PatternBody(2500);
  const Bytes stream = BuildPackage("a") + BuildPackage("") + BuildPackage(large);
  link.peer.SendRaw(stream);
  for (const Bytes& body : {Bytes("a"), Bytes(), large}) {
    EXPECT_EQ(m_protocol.ReceivePackage(), body);
  }
  EXPECT_EQ(m_protocol.LinesWith("Recv msg count[1] ").size(), 3U);
  EXPECT_EQ(m_protocol.LinesWith("Recv msg count[0] ").size(), stream.size() - 3);
  EXPECT_EQ(m_faults.Pending(), 0U);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
}

TEST_F(Faults, PartsOfPackagesGoOutWhereTheLastOnesEndedAndAllAreReleasedOnce) {
  m_faults.AtMost(Call::kSend, 4000);
  m_faults.Fail(Call::kSend, EAGAIN, 3);
  m_faults.Fail(Call::kSend, EINTR, 4);
  auto link = m_protocol.OpenLink(m_server);
  const Bytes first = PatternBody(30000, 1);
  const Bytes second = PatternBody(5000, 2);
  const FTBufferPtr own(NewBuffer("mine"));
  ASSERT_EQ(Send(link.id, NewBuffer(first)), 0);
  ASSERT_EQ(Send(link.id, NewBuffer(second)), 0);
  ASSERT_EQ(m_protocol.SendPkg(link.id, own.get(), nullptr, FTSendMode::kWithinLimits,
                               FTOnRefusal::kRelease, 3),
            0);
  EXPECT_EQ(link.peer.ReceiveExactly(35004, 10s), first + second + "mine");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  EXPECT_TRUE(m_released.Reaches(2, 10s)) << m_released.Count();
  std::size_t sent = 0;
  for (const SendCall& call : m_faults.Sends()) {
    if (call.result > 0) sent += static_cast<std::size_t>(call.result);
  }
  EXPECT_EQ(sent, 35004U);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  m_protocol.Stop();
  EXPECT_EQ(own->GetDataLen(), 0) << "without a release function it stays the sender's";
}

TEST_F(Faults, SmallPackagesLeaveTogether) {
  m_faults.Fail(Call::kSend, EAGAIN, 1);
  auto link = m_protocol.OpenLink(m_server);
  ASSERT_EQ(Send(link.id, NewBuffer("first")), 0);
  ASSERT_TRUE(WaitUntil([&] { return m_faults.Pending() == 0; }, 10s));
  m_faults.Fail(Call::kSend, EAGAIN, 20);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(Send(link.id, NewBuffer("small")), 0);
  EXPECT_TRUE(link.peer.ReceiveExactly(505, 10s));
  std::size_t successful = 0;
  for (const SendCall& call : m_faults.Sends()) successful += call.result > 0 ? 1 : 0;
  EXPECT_LE(successful, 10U);
}

TEST_F(Faults, AFailedSendEndsTheLinkAndItsPackagesAreReleasedOnce) {
  m_faults.Fail(Call::kSend, EPIPE, 1);
  auto link = m_protocol.OpenLink(m_server);
  for (int i = 0; i < 3; ++i) Send(link.id, NewBuffer("lost"));
  EXPECT_EQ(m_protocol.WaitClosed(), FTCloseReason::kSendFailed);
  EXPECT_EQ(m_faults.Sends().size(), 1U);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 0);
  const auto lines = m_protocol.LinesWith("Link down with[127.0.0.1]: Send error, SslErrCode[0]\n");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].line, 2688);
  EXPECT_EQ(lines[0].level_code, -1);
  const FastClock towards_reaping(20);
  EXPECT_TRUE(m_released.Reaches(3, 10s)) << m_released.Count();
}

TEST_F(Faults, AFailedReceiveEndsTheLink) {
  m_faults.Fail(Call::kReceive, ETIMEDOUT, 1);
  auto link = m_protocol.OpenLink(m_server);
  link.peer.SendPackage("never read");
  EXPECT_EQ(m_protocol.WaitClosed(), FTCloseReason::kRecvFailed);
}

TEST_F(Faults, AQueueTakesItsLimitAndMoreOnlyByForceOrAsItsFirstPackage) {
  RefuseToSend();
  auto link = m_protocol.OpenLink(m_server);
  auto second = m_protocol.OpenLink(m_server);
  ASSERT_EQ(Send(link.id, NewNothing(kQueueLimit - 10)), kSendQueued);
  EXPECT_EQ(Send(link.id, NewNothing(11)), kSendTooMuch);
  EXPECT_EQ(Send(link.id, NewNothing(10)), kSendQueued);
  EXPECT_EQ(Send(link.id, NewNothing(1)), kSendTooMuch);
  EXPECT_EQ(Send(link.id, NewNothing(11), FTSendMode::kForced), kSendQueued);
  EXPECT_EQ(m_protocol.State().queued_send_bytes, kQueueLimit + 11);
  EXPECT_EQ(Send(second.id, NewNothing(kQueueLimit + 1)), kSendQueued);
  EXPECT_EQ(Send(second.id, NewNothing(1)), kSendTooMuch);
  EXPECT_GT(m_faults.Pending(), 0U) << "something was sent: the test saw nothing";
  m_protocol.Stop();
}

TEST_F(Faults, RoomIsReportedTwiceASecondBelowFourFifthsOfTheLimit) {
  RefuseToSend();
  auto link = m_protocol.OpenLink(m_server);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i) {
    const auto report = m_protocol.Spaces().Take(10s);
    ASSERT_TRUE(report && report->link_id == link.id);
    EXPECT_EQ(report->free_bytes, kQueueLimit);
    EXPECT_EQ(report->limit, kQueueLimit);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1000ms);

  ASSERT_EQ(Send(link.id, NewNothing(160000000)), kSendQueued);
  const std::size_t sends = m_faults.Sends().size();
  ASSERT_TRUE(WaitUntil([&] { return m_faults.Sends().size() > sends + 20; }, 10s));
  while (const auto report = m_protocol.Spaces().Take(0ms)) {
    EXPECT_EQ(report->free_bytes, kQueueLimit) << "reports of the empty queue excepted";
  }
  auto second = m_protocol.OpenLink(m_server);
  ASSERT_EQ(Send(second.id, NewNothing(159999999)), kSendQueued);
  EXPECT_TRUE(WaitUntil(
      [&] {
        const auto report = m_protocol.Spaces().Take(10s);
        return report && report->link_id == second.id && report->free_bytes == 40000001;
      },
      10s));
  EXPECT_GT(m_faults.Pending(), 0U) << "something was sent: the test saw nothing";
  m_protocol.Stop();
}

// The undefined-behaviour sanitizer needs descriptors of its own when it first sees an object of a
// class at work, so everything is done once before.
TEST_F(Faults, WithoutFreeDescriptorsCallersWaitAndConnectsFailAtOnce) {
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  Peer before = Peer::Connect(port, 5s);
  ASSERT_TRUE(m_protocol.WaitFor(Kind::kAccepted));
  m_protocol.Connect("127.0.0.1", 0);
  ASSERT_TRUE(m_protocol.WaitFor(Kind::kConnectFailed));

  auto limit = std::make_unique<DescriptorLimit>(1);
  const Peer caller = Peer::Connect(port, 5s);
  const auto refused = [&] {
    return m_protocol.LinesWith("accept() error, socket fd maybe not enough.\n");
  };
  ASSERT_TRUE(WaitUntil([&] { return !refused().empty(); }, 5s));
  m_protocol.Connect(m_server.Host(), m_server.Port());
  EXPECT_TRUE(m_protocol.WaitFor(Kind::kConnectFailed));
  limit.reset();
  const auto lines = refused();
  EXPECT_EQ(lines[0].line, 1660);
  EXPECT_EQ(lines[0].level_code, -1);
  ASSERT_TRUE(m_protocol.WaitFor(Kind::kAccepted));
  EXPECT_GE(std::chrono::steady_clock::now() - lines[0].time, 1990ms)
      << "the listener pauses instead of trying in vain";
  EXPECT_EQ(refused().size(), 1U);
}

TEST_F(Faults, AStopEndsThePauseOfTheListener) {
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  m_faults.Fail(Call::kAccept, EMFILE, 1);
  const Peer caller = Peer::Connect(port, 5s);
  ASSERT_TRUE(WaitUntil([&] { return !m_protocol.LinesWith("accept() error").empty(); }, 5s));
  const auto begin = std::chrono::steady_clock::now();
  m_protocol.Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1000ms);
}

// How many of a link's two threads can start, and whether it is one of our own connects.
class LinkWithoutThreads : public Faults,
                           public testing::WithParamInterface<std::pair<int, bool>> {};

TEST_P(LinkWithoutThreads, IsLoggedAndForgottenAndReportedOnlyToWhoeverConnected) {
  const auto [startable, is_outgoing] = GetParam();
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol.Listen("127.0.0.1", 0, 0, 0, &port), "");
  const std::size_t descriptors = CountDescriptors();
  const ThreadLimit limit(startable);
  if (is_outgoing) m_protocol.Connect(m_server.Host(), m_server.Port());
  Peer peer = is_outgoing ? m_server.Accept(10s) : Peer::Connect(port, 10s);
  const FastClock towards_deletion(20);
  EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
  const auto all_is_back = [&] {
    return TestProtocol::GetThreadCount() == TestProtocol::kThreads &&
           CountDescriptors() == descriptors + 1;  // the peer's
  };
  EXPECT_TRUE(WaitUntil(all_is_back, 10s));
  EXPECT_EQ(m_protocol.IsLinkUp("02000000"), 0);
  EXPECT_EQ(limit.Refused(), 1);
  const auto lines = m_protocol.LinesWith("Create thread error: current threads[");
  ASSERT_EQ(lines.size(), 1U);
  const std::string name = is_outgoing ? ft::FormatString("127.0.0.1:P%d", m_server.Port())
                                       : ft::FormatString("127.0.0.1:M%d", port);
  EXPECT_NE(lines[0].text.find("]. One Connection[" + name + "] has closed now\n"), Bytes::npos);
  EXPECT_EQ(lines[0].line, startable == 0 ? 172 : 2210);
  EXPECT_EQ(lines[0].level_code, -1);
  const auto downs = m_protocol.LinesWith("Link down with[127.0.0.1]: create thread failed.\n");
  EXPECT_EQ(static_cast<int>(downs.size()), startable);
  EXPECT_TRUE(downs.empty() || (downs[0].line == 2219 && downs[0].level_code == -1));
  if (is_outgoing) {
    const auto failed = m_protocol.Events().Take(10s);
    ASSERT_TRUE(failed && failed->kind == Kind::kConnectFailed);
    EXPECT_EQ(failed->link.link_id, "02000000");
  }
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Each, LinkWithoutThreads,
                         testing::Values(std::pair(0, true), std::pair(0, false),
                                         std::pair(1, true), std::pair(1, false)));

// As the system shows them: cut to 15 characters.
TEST_F(Faults, EveryThreadCarriesItsName) {
  const auto link = m_protocol.OpenLink(m_server);
  const auto has_thread = [](const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string comm;
      std::getline(std::ifstream(task.path() / "comm"), comm);
      if (comm == name) return true;
    }
    return false;
  };
  for (const char* name : {"CFTBaseSockIf", "CFTMtSockImpl", "CFTMtSockConn", "CFTMtSockListen",
                           "CFTMtSockWaitTh", "CFTMtSockOneLin", "CFTMtSockSendTh"}) {
    EXPECT_TRUE(WaitUntil([&] { return has_thread(name); }, 10s)) << name;
  }
}

// Takes all descriptor numbers below the one given.
std::vector<Descriptor> TakeNumbersBelow(int number) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<Descriptor> taken;
  do {
    taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  } while (taken.back().Get() >= 0 && taken.back().Get() < number);
  return taken;
}

TEST_F(Faults, LinksWithHighDescriptorNumbersWorkLikeOthers) {
  const auto taken = TakeNumbersBelow(2100);
  if (taken.back().Get() < 0) GTEST_SKIP() << "the system does not allow so many descriptors";
  EchoServer echo;
  const std::string id = m_protocol.Connect(echo.Host(), echo.Port());
  const auto connected = m_protocol.WaitFor(Kind::kConnected);
  ASSERT_TRUE(connected);
  EXPECT_GT(connected->link.socket, 2100);
  ASSERT_EQ(m_protocol.Send(id, PatternBody(2000000)), 0);
  EXPECT_EQ(m_protocol.ReceivePackage(), PatternBody(2000000));
}

}  // namespace
}  // namespace testkit
