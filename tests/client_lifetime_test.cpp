// From Link to UnLink or to the end of the process, at any moment and under any circumstances:
// UnLink returns and gives back all that the client held, and the process ends.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "client/client_slot.h"
#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"
#include "tests/support/dead_ports.h"
#include "tests/support/environment.h"
#include "tests/support/process_usage.h"
#include "tests/support/thread_limit.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientLifetime : public ClientTest {
 protected:
  ~ClientLifetime() override { EXPECT_TRUE(m_before.AreRestored(5s)) << m_before.Difference(); }

  const HeldResources m_before;
};

// Each round unlinks after a delay of its own; the rounds are spread over many cases, since each
// of them waits for the client's threads to notice their end.
class EarlyUnLink : public ClientLifetime, public ::testing::WithParamInterface<unsigned int> {};

TEST_P(EarlyUnLink, ReturnsAndLeavesNothingBehind) {
  EchoServer accepting;
  ScriptedServer closing;
  ClosedPort refusing;
  FullBacklogPort mute;
  const Endpoint servers[] = {At(accepting), At(refusing), At(mute), At(closing), {"", 0}};
  std::mt19937 random(GetParam());
  for (int round = 0; round < 12; ++round) {
    const Endpoint& server = servers[random() % std::size(servers)];
    // Most delays lie within the first milliseconds, where the threads are being started.
    const auto delay = std::chrono::microseconds(random() % (round % 3 == 0 ? 80000 : 3000));
    ASSERT_EQ(Link({server, At(accepting)}), 1);
    if (round % 4 != 0) std::this_thread::sleep_for(delay);
    if (round % 2 == 0) Ask("?");
    while (closing.TryAccept(0ms)) continue;
    EXPECT_EQ(m_client.UnLink(), 0);
    ASSERT_EQ(g_pClientCommThread, nullptr);
  }
  EXPECT_TRUE(accepting.WaitForOpenLinks(0, 5s));
}

INSTANTIATE_TEST_SUITE_P(Seeds, EarlyUnLink, ::testing::Range(1U, 17U));

TEST_F(ClientLifetime, UnLinkDoesNotWaitForAServerThatReadsNothing) {
  ScriptedServer slow(4096);
  Peer peer = LinkWith(&slow);
  const Bytes big = PatternBody(8000000);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Ask(big), 0);
  m_client.UnLink();
  EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
}

// The memory checker sees a body that is lost.
TEST_F(ClientLifetime, UnLinkWhilePackagesPourInLosesNoBody) {
  EchoServer server;
  for (const bool with_window : {true, false}) {
    LinkWith(server);
    if (!with_window) m_client.ChangeReceieveWnd(0, 0);
    for (int i = 0; i < 2000; ++i) Ask(PatternBody(2000));
    ASSERT_TRUE(server.WaitForPackages(with_window ? 1 : 2001, 10s));
    m_client.UnLink();
    m_window.Drain();
  }
}

// The client's own thread, the engine with its three, and two for a link.
TEST_F(ClientLifetime, MissingThreadsMakeNeitherLinkNorUnLinkFail) {
  ScriptedServer server;
  for (int threads = 0; threads < 6; ++threads) {
    const ThreadLimit limit(threads);
    EXPECT_EQ(Link({At(server)}), 1);
    const auto failed = [&] { return limit.RefusedCount() > 0 && m_client.IsOnline() == 0; };
    EXPECT_TRUE(WaitUntil(failed, 5s)) << threads;
    EXPECT_EQ(m_client.UnLink(), 0);
  }
}

constexpr char kEarlyPort[] = "TEST_LINK_BEFORE_MAIN_TO_PORT";

struct Host {
  CClientDataSource client;

  // Links before main when the test asks for it.
  Host() {
    if (const char* const port = std::getenv(kEarlyPort)) {
      LinkClient(&client, {{kLoopbackHost, std::atoi(port)}}, 0, 0);
    }
  }
};

Host g_host;
EchoServer* g_server = nullptr;  // in the ending process, which never ends it

[[noreturn]] void EndLinked(CClientDataSource* client) {
  g_server = new EchoServer;
  ClientWindow window(client);
  LinkClient(client, {At(*g_server)}, window.Handle(), window.Message());
  if (window.Next(10s) != LinkUp()) std::_Exit(2);
  for (int i = 0; i < 5000; ++i) client->AskData("do not answer me", 16);
  std::exit(0);
}

[[noreturn]] void EndAfterAnEarlyLink() {
  std::exit(WaitUntil([] { return g_host.client.IsOnline() == 1; }, 10s) ? 0 : 3);
}

// Each ends a process of its own without a word to its client: a global one, which ends after main,
// one that nobody ends, and one that linked before main.
TEST(ClientExitDeathTest, ClientMayBeAtWorkBeforeMainAndAfterIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const ::testing::ExitedWithCode well(0);
  EXPECT_EXIT(EndLinked(&g_host.client), well, "^$");
  EXPECT_EXIT(EndLinked(new CClientDataSource), well, "^$");
  const EchoServer server;
  SetVariable(kEarlyPort, std::to_string(server.Port()).c_str());
  EXPECT_EXIT(EndAfterAnEarlyLink(), well, "^$");
  SetVariable(kEarlyPort, "");
}

}  // namespace
}  // namespace testkit
