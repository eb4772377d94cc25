// From connect to the link table, and out of it again: kept for a while, then joined and deleted.
#include "00shcode/ftmtsockimpl/engine.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/listener.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"
#include "00shcode/ftmtsockimpl/wait_thread.h"
#include "00shcode/mytoolkit/text.h"
#include "tests/support/answering_server.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/release_counter.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/socket_traits.h"
#include "tests/support/test_protocol.h"
#include "tests/support/thread_limit.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

constexpr auto kAWhile = 300ms;  // for what must not happen

// The clock stands still, and no ended link is deleted, unless the test lets the time pass.
class Engine : public testing::Test {
 protected:
  void SetUp() override { m_protocol->StartAlone(); }

  void TearDown() override {
    m_protocol.reset();
    EXPECT_TRUE(m_before.AreRestored(10s)) << m_before.Difference();
  }

  std::string ConnectIn(std::int32_t seconds) {
    return m_protocol->Connect(m_slow.Host(), m_slow.Port(), 5, 0, nullptr, 0, seconds);
  }

  void SendMuch(const std::string& link_id, std::int32_t priority) {
    const Bytes much = PatternBody(3000000);
    m_protocol->SendPkg(link_id, NewBuffer(much), &ReleaseCounter::Release, 0, 1, priority);
  }

  // A link that has ended and whose threads have, joined or not. The package that nobody reads is
  // released when the link is deleted, and so shows when that is.
  Peer FinishLink() {
    const std::size_t threads = CountThreads();
    auto link = m_protocol->OpenLink(m_slow);
    SendMuch(link.id, 1);
    link.peer.StopSending();
    EXPECT_EQ(m_protocol->WaitClosed(), 2);
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() == threads; }, 10s));
    return std::move(link.peer);
  }

  const LinkEnd m_reset = EndOfResetLinks();
  ManualClock m_clock;
  ScriptedServer m_slow{4096};
  const HeldResources m_before;
  const ReleaseCounter m_released;
  std::unique_ptr<TestProtocol> m_protocol = std::make_unique<TestProtocol>();
};

TEST_F(Engine, ADelayedConnectStartsOnceItsDelayIsOverUnlessItIsClosed) {
  const std::string later = ConnectIn(4);
  const std::string sooner = ConnectIn(3);
  const std::string closed = ConnectIn(3);
  m_protocol->CloseLink(closed, 1);
  const auto failed = m_protocol->WaitFor(Kind::kConnectFailed);
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->link.link_id, closed);
  EXPECT_EQ(failed->link.user_value1, 5U);

  m_clock.Advance(2999);
  EXPECT_FALSE(m_slow.TryAccept(kAWhile));
  for (const std::string& due : {sooner, later}) {
    m_clock.Advance(1000);
    const auto connected = m_protocol->WaitFor(Kind::kConnected);
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->link.link_id, due);
  }
  EXPECT_TRUE(m_slow.TryAccept(10s) && m_slow.TryAccept(10s));
  EXPECT_FALSE(m_slow.TryAccept(kAWhile));
}

TEST_F(Engine, ClosingALinkEndsItAtOnceWithALineTheReasonAndItsPackagesUnsent) {
  auto link = m_protocol->OpenLink(m_slow);
  for (int priority = 1; priority <= 5; ++priority) SendMuch(link.id, priority);
  EXPECT_EQ(m_protocol->IsLinkUp(link.id), 1);
  m_protocol->CloseLink(link.id, 0);
  m_protocol->CloseLink(link.id, 0);
  EXPECT_EQ(m_protocol->WaitClosed(), 6);
  EXPECT_EQ(m_protocol->IsLinkUp(link.id), 0);
  EXPECT_NE(link.peer.WaitClosed(10s), LinkEnd::kStillOpen);
  EXPECT_LT(m_released.Count(), 5);
  EXPECT_GE(m_protocol->State().queued_send_bytes.Get(), 5000000);
  const auto lines = m_protocol->LinesWith("Link down");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "Link down with[127.0.0.1]: I close it.\n");
  EXPECT_EQ(lines[0].source, "ftmtsockimpl.cpp");
  EXPECT_EQ(lines[0].line, 333);
  EXPECT_EQ(lines[0].level_code, -1);
  EXPECT_EQ(m_protocol->Events().Count(), 0U);
}

// On accepted links: closing one of our own connects resets it, and what the system has taken but
// not yet delivered is lost with it.
TEST_F(Engine, ClosingAfterSendingSendsEverythingFirst) {
  const Bytes large = PatternBody(30000000);  // more than the system takes from us
  std::uint16_t port = 0;
  ASSERT_EQ(m_protocol->Listen("127.0.0.1", 0, 0, 0, &port), "01000000");
  Peer peer = Peer::Connect(port, 10s);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kAccepted));
  const std::string id = "02000000";
  ASSERT_EQ(m_protocol->Send(id, large, 1), 0);
  ASSERT_EQ(m_protocol->Send(id, "second"), 0);
  m_protocol->CloseLink(id, 1);
  EXPECT_FALSE(WaitUntil([&] { return m_protocol->IsLinkUp(id) == 0; }, kAWhile));
  EXPECT_EQ(m_protocol->Send(id, "late"), 0) << "a link stays up until everything is sent";
  EXPECT_TRUE(peer.ReceiveExactly(kHeaderSize + large.size(), 20s) == BuildPackage(large));
  for (const char* body : {"second", "late"}) EXPECT_EQ(peer.ReceivePackage(10s), body);
  EXPECT_EQ(m_protocol->WaitClosed(), 6);
  EXPECT_EQ(peer.WaitClosed(10s), LinkEnd::kOrderly);
  EXPECT_EQ(m_protocol->LinesWith("Link down with[127.0.0.1]: I close it.\n").size(), 1U);

  Peer idle = Peer::Connect(port, 10s);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kAccepted));
  m_protocol->CloseLink("03000000", 1);
  EXPECT_EQ(m_protocol->WaitClosed(), 6);
  EXPECT_EQ(idle.WaitClosed(10s), LinkEnd::kOrderly);
}

TEST_F(Engine, ManyLinksAndSendersAtOnceLoseDoubleAndMixNothing) {
  constexpr int kLinks = 25;
  constexpr int kSenders = 4;
  constexpr std::size_t kPackages = 20;
  EchoServer echo;
  std::vector<std::string> ids;
  for (int i = 0; i < kLinks; ++i) ids.push_back(m_protocol->Connect(echo.Host(), echo.Port()));
  for (int i = 0; i < kLinks; ++i) ASSERT_TRUE(m_protocol->WaitFor(Kind::kConnected));
  const auto body_of = [](char sender, const std::string& id, std::size_t number) {
    return sender + id + PatternBody(300 * number);
  };
  RunOnThreads(kSenders, [&](int sender) {
    const char letter = static_cast<char>('a' + sender);
    for (std::size_t i = 0; i < kPackages; ++i) {
      for (const std::string& id : ids) {
        EXPECT_EQ(m_protocol->Send(id, body_of(letter, id, i), sender), 0);
      }
    }
  });
  std::map<std::string, std::size_t> answers;  // by sender and link
  for (std::size_t i = 0; i < kLinks * kSenders * kPackages; ++i) {
    const auto event = m_protocol->WaitFor(Kind::kPackage);
    ASSERT_TRUE(event) << "only " << i << " answers";
    const std::string& id = event->link.link_id;
    const char sender = event->body.at(0);
    ASSERT_EQ(event->body, body_of(sender, id, answers[sender + id]++));
  }
  for (const std::string& id : ids) m_protocol->CloseLink(id, 0);
  for (int i = 0; i < kLinks; ++i) EXPECT_EQ(m_protocol->WaitClosed(), 6);
  EXPECT_TRUE(echo.WaitForOpenLinks(0, 10s));
  EXPECT_TRUE(m_protocol->CountersReturnToZero());
  EXPECT_EQ(m_protocol->Events().Count(), 0U);
}

TEST_F(Engine, LinksAreDeletedMoreThan5SecondsAfterTheyFinished) {
  Peer peers[] = {FinishLink(), FinishLink(), FinishLink()};
  m_clock.Advance(5000);
  EXPECT_FALSE(WaitUntil([&] { return m_released.Count() > 0; }, kAWhile));
  EXPECT_GT(m_protocol->State().queued_send_bytes.Get(), 0);
  EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads + 3);
  const FastClock runs_on(4);
  EXPECT_TRUE(m_released.Reaches(3, 5s)) << m_released.Count();
  EXPECT_TRUE(m_protocol->CountersReturnToZero());
  EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads);
  for (Peer& peer : peers) EXPECT_EQ(peer.WaitClosed(10s), m_reset);
}

// Finished links are looked for every 5 seconds, and connects that are due after that.
TEST_F(Engine, TheWaitThreadsLinksAreDeletedWhenItEndsAllOthersWithTheEngine) {
  FinishLink();
  FinishLink();
  ConnectIn(5);
  m_clock.Advance(5000);
  ASSERT_TRUE(m_protocol->WaitFor(Kind::kConnected));
  EXPECT_EQ(m_released.Count(), 0);
  FinishLink();
  m_protocol->Stop();
  EXPECT_EQ(m_released.Count(), 2);
  m_protocol.reset();
  EXPECT_EQ(m_released.Count(), 3);
}

TEST(EngineThreads, CloseTheSocketsThatTheyNeverTookUp) {
  TestProtocol owner;
  const HeldResources before;
  {
    CFTMtSockImpl engine(&owner, 1, 0);
    CFTMtSockListen listener(&owner, &engine, &engine);
    CFTMtSockWaitThrd wait_thread(&owner);
    FTLinkReq req;
    req.link.socket = FTSockListen("127.0.0.1", 0);
    auto link = std::make_unique<CFTMtSockOneLinkThrd>(&engine, req);
    wait_thread.PostMsg(FTMSG_REAP_LINK, "", 1, ToParam(std::move(link)));
    req.link.socket = FTSockListen("127.0.0.1", 0);
    engine.PostMsg(FTMSG_ADD_LINK, "", 1, ToParam(std::make_unique<FTLinkReq>(req)));
    req.link.socket = FTSockListen("127.0.0.1", 0);
    listener.PostMsg(FTMSG_ADD_LISTEN, "", 1, ToParam(std::make_unique<FTLinkInfo>(req.link)));
  }
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

// How many of a link's two threads can start, and whether it is one of our own connects.
class LinkWithoutThreads : public Engine,
                           public testing::WithParamInterface<std::pair<int, bool>> {};

TEST_P(LinkWithoutThreads, IsLoggedAndForgottenAndReportedOnlyToWhoeverConnected) {
  const auto [startable, is_outgoing] = GetParam();
  std::uint16_t port = 0;
  ASSERT_NE(m_protocol->Listen("127.0.0.1", 0, 0, 0, &port), "");
  const std::size_t descriptors = CountDescriptors();
  const ThreadLimit limit(startable);
  if (is_outgoing) ConnectIn(0);
  Peer peer = is_outgoing ? m_slow.Accept(10s) : Peer::Connect(port, 10s);
  const FastClock towards_deletion(20);
  EXPECT_NE(peer.WaitClosed(10s), LinkEnd::kStillOpen);
  const auto all_is_back = [&] {
    return TestProtocol::GetThreadCount() == TestProtocol::kThreads &&
           CountDescriptors() == descriptors + 1;  // the peer's
  };
  EXPECT_TRUE(WaitUntil(all_is_back, 10s));
  EXPECT_EQ(m_protocol->IsLinkUp("02000000"), 0);
  EXPECT_EQ(limit.RefusedCount(), 1);
  const auto lines = m_protocol->LinesWith("Create thread error: current threads[");
  ASSERT_EQ(lines.size(), 1U);
  const std::string name = is_outgoing ? FormatString("127.0.0.1:P%d", m_slow.Port())
                                       : FormatString("127.0.0.1:M%d", port);
  EXPECT_NE(lines[0].text.find("]. One Connection[" + name + "] has closed now\n"), Bytes::npos);
  EXPECT_EQ(lines[0].line, startable == 0 ? 172 : 2210);
  const auto downs = m_protocol->LinesWith("Link down with[127.0.0.1]: create thread failed.\n");
  EXPECT_EQ(static_cast<int>(downs.size()), startable);
  if (is_outgoing) {
    const auto failed = m_protocol->Events().Take(10s);
    ASSERT_TRUE(failed && failed->kind == Kind::kConnectFailed);
    EXPECT_EQ(failed->link.link_id, "02000000");
  }
  EXPECT_EQ(m_protocol->Events().Count(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Each, LinkWithoutThreads,
                         testing::Values(std::pair(0, true), std::pair(0, false),
                                         std::pair(1, true), std::pair(1, false)));

}  // namespace
}  // namespace testkit
