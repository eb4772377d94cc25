// From Link to UnLink, at any moment and under any circumstances: UnLink returns, and gives back
// all that the client held.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>

#include "client/client_slot.h"
#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"
#include "tests/support/dead_ports.h"
#include "tests/support/fast_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/thread_limit.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientLifetime : public ClientTest {};

void DropLinks(ScriptedServer* server) {
  while (server->TryAccept(0ms)) {
  }
}

// Each round unlinks after a delay of its own; the rounds are spread over many cases, since each
// of them waits for the client's threads to notice their end.
class EarlyUnLink : public ClientTest, public ::testing::WithParamInterface<unsigned int> {};

TEST_P(EarlyUnLink, ReturnsAndLeavesNothingBehind) {
  constexpr int kRounds = 12;
  EchoServer accepting;
  ScriptedServer closing;
  ClosedPort refusing;
  FullBacklogPort mute;
  const Endpoint servers[] = {At(accepting), At(refusing), At(mute), At(closing), {"", 0}};
  std::mt19937 random(GetParam());
  const HeldResources before;
  for (int round = 0; round < kRounds; ++round) {
    const Endpoint& server = servers[random() % std::size(servers)];
    // Most delays lie within the first milliseconds, where the threads are being started.
    const auto delay = std::chrono::microseconds(random() % (round % 3 == 0 ? 80000 : 3000));
    ASSERT_EQ(Link({server, At(accepting)}), 1);
    if (round % 4 != 0) std::this_thread::sleep_for(delay);
    if (round % 2 == 0) Ask("?");
    DropLinks(&closing);
    EXPECT_EQ(m_client.UnLink(), 0);
    ASSERT_EQ(g_pClientCommThread, nullptr);
  }
  EXPECT_TRUE(accepting.WaitForOpenLinks(0, 5s));
  DropLinks(&closing);
  EXPECT_TRUE(before.AreRestored(5s)) << before.Difference();
}

INSTANTIATE_TEST_SUITE_P(Seeds, EarlyUnLink, ::testing::Range(1U, 17U));

TEST_F(ClientLifetime, ManyLostLinksGiveBackThreadsAndDescriptors) {
  FastClock fast(10);
  ScriptedServer server;
  const HeldResources before;
  ASSERT_EQ(Link({At(server)}), 1);
  for (int links = 0; links < 5; ++links) {
    TakeLink(&server).Close();
    EXPECT_EQ(m_window.Next(5s), LinkClosed());
  }
  m_client.UnLink();
  DropLinks(&server);
  EXPECT_TRUE(before.AreRestored(5s)) << before.Difference();
}

TEST_F(ClientLifetime, UnLinkDoesNotWaitForAServerThatReadsNothing) {
  ScriptedServer slow(4096);
  const HeldResources before;
  {
    Peer peer = LinkWith(&slow);
    const Bytes big = PatternBody(8000000);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Ask(big), 0);
    m_client.UnLink();
    EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
  }
  EXPECT_TRUE(before.AreRestored(5s)) << before.Difference();
}

TEST_F(ClientLifetime, UnLinkWhilePackagesPourInLosesNoBody) {
  EchoServer server;
  const HeldResources before;
  for (const bool with_window : {true, false}) {
    LinkWith(server);
    if (!with_window) m_client.ChangeReceieveWnd(0, 0);
    for (int i = 0; i < 2000; ++i) Ask(PatternBody(2000));
    ASSERT_TRUE(server.WaitForPackages(with_window ? 1 : 2001, 10s));
    m_client.UnLink();
    m_window.Drain();
    EXPECT_TRUE(server.WaitForOpenLinks(0, 5s));
  }
  EXPECT_TRUE(before.AreRestored(5s)) << before.Difference();
}

// The client's own thread, the engine with its three, and two for a link.
TEST_F(ClientLifetime, MissingThreadsMakeNeitherLinkNorUnLinkFail) {
  FastClock fast(10);
  ScriptedServer server;
  const HeldResources before;
  for (int threads = 0; threads < 7; ++threads) {
    {
      const ThreadLimit limit(threads);
      EXPECT_EQ(Link({At(server)}), 1);
      if (threads == 0) {
        EXPECT_EQ(Ask("?"), -1);
      }
      if (threads >= 4) {  // a connect comes about, and no link of it
        EXPECT_EQ(m_window.Next(5s), ConnectFailed()) << threads;
      }
      EXPECT_EQ(m_client.IsOnline(), 0);
      if (threads < 6) m_client.UnLink();
    }
    if (threads < 6) m_window.Drain();
  }
  EXPECT_TRUE(m_window.WaitFor(LinkUp(), 5s)) << "a link's threads are tried again";
  m_client.UnLink();
  DropLinks(&server);
  EXPECT_TRUE(before.AreRestored(5s)) << before.Difference();
}

}  // namespace
}  // namespace testkit
