// From Link to UnLink or to the end of the process, at any moment and under any circumstances:
// UnLink returns and gives back all that the client held, and the process ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

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
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientLifetime : public ClientTest {
 protected:
  ~ClientLifetime() override { EXPECT_TRUE(m_before.AreRestored(5s)) << m_before.Difference(); }

  const HeldResources m_before;
};

// Each round unlinks after a delay of its own.
class EarlyUnLink : public ClientLifetime, public ::testing::WithParamInterface<unsigned int> {};

TEST_P(EarlyUnLink, ReturnsAndLeavesNothingBehind) {
  EchoServer accepting;
  ScriptedServer closing;
  ClosedPort refusing;
  FullBacklogPort mute;
  const Endpoint servers[] = {At(accepting), At(refusing), At(mute), At(closing), {"", 0}};
  std::mt19937 random(GetParam());
  for (int round = 0; round < 48; ++round) {
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

INSTANTIATE_TEST_SUITE_P(Seeds, EarlyUnLink, ::testing::Range(1U, 5U));

// The median of nine, since the machine may be busy.
template <typename Prepare>
std::chrono::milliseconds TimeOfUnLink(CClientDataSource* client, const Prepare& prepare) {
  using Clock = std::chrono::steady_clock;
  std::vector<Clock::duration> times;
  for (int i = 0; i < 9; ++i) {
    prepare();
    const auto begin = Clock::now();
    client->UnLink();
    times.push_back(Clock::now() - begin);
  }
  std::sort(times.begin(), times.end());
  return std::chrono::duration_cast<std::chrono::milliseconds>(times[4]);
}

TEST_F(ClientLifetime, UnLinkIsQuickInEveryState) {
  constexpr auto kQuick = 400ms;  // what nobody wakes takes half a second or more
  ScriptedServer server(4096);
  FullBacklogPort mute;
  ClosedPort refusing;
  const Bytes big = PatternBody(8000000);
  EXPECT_LT(TimeOfUnLink(&m_client, [&] { LinkWith(&server); }), kQuick) << "up";
  EXPECT_LT(TimeOfUnLink(&m_client, [&] { Link({At(mute)}); }), kQuick) << "connecting";
  EXPECT_LT(TimeOfUnLink(&m_client,
                         [&] {
                           m_window.Drain();
                           Link({At(refusing)});
                           m_window.Next(20ms);  // a refusal may be known at once, or never
                         }),
            kQuick)
      << "refused";
  m_window.Drain();
  EXPECT_LT(TimeOfUnLink(&m_client,
                         [&] {
                           LinkWith(&server).Close();
                           EXPECT_EQ(m_window.Next(5s), LinkClosed());
                         }),
            kQuick)
      << "just lost";
  std::vector<Peer> peers;
  EXPECT_LT(TimeOfUnLink(&m_client,
                         [&] {
                           peers.push_back(LinkWith(&server));
                           for (int i = 0; i < 3; ++i) EXPECT_EQ(Ask(big), 0);
                         }),
            kQuick)
      << "a server that reads nothing";
  for (Peer& peer : peers) EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
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
