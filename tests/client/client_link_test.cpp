// From Link to UnLink or to the end of the process: what the calls answer in each state, and what
// the client leaves behind.

#include "tests/support/client_test.h"
#include "tests/support/process.h"

namespace {

using namespace testkit;

class ClientLink : public ClientTest {
 protected:
  void ExpectNoClient() {
    EXPECT_EQ(m_client.IsOnline(), 0);
    EXPECT_EQ(m_client.AskData(nullptr, UINT_MAX), 0);
    m_client.ChangeReceieveWnd(m_window.Handle(), m_window.Message());
    m_client.FreeBuffer(nullptr);
    EXPECT_EQ(m_client.UnLink(), 0);
    EXPECT_EQ(g_pClientCommThread, nullptr);
  }

  void ExpectLinkTo(Peer* peer) {
    EXPECT_EQ(m_client.IsOnline(), 1);
    EXPECT_EQ(Ask("question"), 0);
    EXPECT_EQ(peer->ReceivePackage(5s), "question");
  }

  int LinkOther(const ScriptedServer& server) {
    return LinkClient(&m_client, {At(server)}, m_other_window.Handle(), m_other_window.Message());
  }

  ManualClock m_clock;  // stands still: no attempt but the first is made
  ScriptedServer m_server;
  ClientWindow m_other_window{&m_client, 0x0500};
};

TEST_F(ClientLink, EveryStateGivesItsAnswersAndUnLinkMakesRoomForOtherServers) {
  ScriptedServer other_server;
  ExpectNoClient();
  Peer peer = LinkWith(&m_server);
  EXPECT_EQ(LinkOther(other_server), 0) << "a client runs";
  ExpectLinkTo(&peer);

  peer.Close();
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
  EXPECT_EQ(m_client.IsOnline(), 0);
  EXPECT_EQ(Ask("nowhere to go"), -1);

  m_clock.Advance(kOneCheckMs);
  Peer second = TakeLink(&m_server);
  ExpectLinkTo(&second);
  second.SendPackage("posted in time");
  second.Close();
  // Without a link there is no link id: the end, and all before it, has been posted.
  EXPECT_TRUE(WaitUntil([&] { return Ask("?") == -1; }, 5s));
  EXPECT_EQ(m_client.UnLink(), 0);
  ExpectNoClient();

  EXPECT_EQ(LinkOther(other_server), 1);
  EXPECT_EQ(m_other_window.Next(5s), LinkUp());
  Peer third = other_server.Accept(5s);
  EXPECT_EQ(m_client.UnLink(), 0);
  EXPECT_NE(third.WaitClosed(5s), LinkEnd::kStillOpen);
  EXPECT_EQ(m_other_window.Next(0ms), std::nullopt) << "an end on request is not reported";
  EXPECT_EQ(m_window.Next(0ms), Package("posted in time"));
  EXPECT_EQ(m_window.Next(0ms), LinkClosed());
  EXPECT_EQ(m_window.Next(0ms), std::nullopt);
}

TEST_F(ClientLink, CopiesActOnTheSameClientAndNewObjectsOnNoneUntilTheyLink) {
  Peer peer = LinkWith(&m_server);
  CClientCommThread* const client = g_pClientCommThread;
  {
    CClientDataSource newcomer;  // forgets the client, which goes on
    ExpectNoClient();
    EXPECT_EQ(LinkOther(m_server), 1);
    EXPECT_EQ(m_other_window.Next(5s), LinkUp());
  }
  g_pClientCommThread = client;
  {
    CClientDataSource copy(m_client);
    EXPECT_EQ((copy = m_client).AskData("x", 1), 0);
    EXPECT_EQ(peer.ReceivePackage(5s), "x");
  }
  EXPECT_EQ(g_pClientCommThread, nullptr);
  EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
}

constexpr char kEarlyPort[] = "TEST_LINK_BEFORE_MAIN_TO_PORT";

// Links before main when the test asks for it.
struct Host {
  Host() {
    if (const char* const text = std::getenv(kEarlyPort)) port = std::atoi(text);
    if (port != 0) LinkClient(&client, {{kLoopbackHost, port}}, 0, 0);
  }

  CClientDataSource client;
  int port = 0;
};

Host g_host;

[[noreturn]] void EndAtWork(CClientDataSource* client) {
  ClientWindow window(client);
  LinkClient(client, {{kLoopbackHost, g_host.port}}, 0, 0);  // refused to the one that has
  if (!WaitUntil([&] { return client->IsOnline() == 1; }, 10s)) std::_Exit(2);
  client->ChangeReceieveWnd(window.Handle(), window.Message());
  for (int i = 0; i < 5000; ++i) client->AskData("request", 7);
  std::exit(0);
}

// Each ends a process of its own without a word to its client: a global one, which links before
// main and ends after it, and one that nobody ends beside another that nobody can reach any more.
TEST(ClientExitDeathTest, ClientMayBeAtWorkBeforeMainAndAfterIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EchoServer server;
  SetVariable(kEarlyPort, std::to_string(server.Port()).c_str());
  const ::testing::ExitedWithCode well(0);
  EXPECT_EXIT(EndAtWork(&g_host.client), well, "^$");
  EXPECT_EXIT(EndAtWork(new CClientDataSource), well, "^$");
  SetVariable(kEarlyPort, "");
}

}  // namespace
