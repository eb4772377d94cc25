#include <gtest/gtest.h>

#include <climits>
#include <optional>

#include "client/client_slot.h"
#include "tests/support/client_test.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientLink : public ClientTest {
 protected:
  void ExpectNoClient() {
    EXPECT_EQ(m_client.IsOnline(), 0);
    EXPECT_EQ(Ask("lost"), 0);
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

  ClientWindow m_other_window{&m_client, 0x0500};
};

TEST_F(ClientLink, EveryStateGivesItsAnswers) {
  ManualClock clock;  // stands still: no attempt but the first is made
  ScriptedServer server;
  ExpectNoClient();
  Peer peer = LinkWith(&server);
  ExpectLinkTo(&peer);

  peer.Close();
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
  EXPECT_EQ(m_client.IsOnline(), 0);
  EXPECT_EQ(Ask("nowhere to go"), -1);

  clock.Advance(kOneCheckMs);
  Peer second = TakeLink(&server);
  ExpectLinkTo(&second);

  EXPECT_EQ(m_client.UnLink(), 0);
  EXPECT_NE(second.WaitClosed(5s), LinkEnd::kStillOpen);
  ExpectNoClient();
  EXPECT_EQ(m_window.Next(0ms), std::nullopt) << "an end on request is not reported";
}

TEST_F(ClientLink, SecondLinkIsRefusedAndChangesNothing) {
  FastClock fast(10);
  ScriptedServer server;
  ScriptedServer other_server;
  Peer peer = LinkWith(&server);
  EXPECT_EQ(LinkOther(other_server), 0);
  ExpectLinkTo(&peer);
  peer.Close();
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
  TakeLink(&server);
  EXPECT_EQ(other_server.TryAccept(0ms), std::nullopt);
  EXPECT_EQ(m_other_window.Next(0ms), std::nullopt);
}

TEST_F(ClientLink, UnLinkEmptiesNoWindowAndMakesRoomForOtherServers) {
  ManualClock clock;
  ScriptedServer server;
  ScriptedServer other_server;
  Peer peer = LinkWith(&server);
  peer.SendPackage("posted in time");
  peer.Close();
  // Without a link there is no link id: the end, and all before it, has been posted.
  EXPECT_TRUE(WaitUntil([&] { return Ask("?") == -1; }, 5s));
  m_client.UnLink();

  EXPECT_EQ(LinkOther(other_server), 1);
  Peer other_peer = other_server.Accept(5s);
  EXPECT_EQ(m_other_window.Next(5s), LinkUp());
  other_peer.SendPackage("new");
  EXPECT_EQ(m_other_window.Next(5s), Package("new"));
  EXPECT_EQ(m_window.Next(0ms), Package("posted in time"));
  EXPECT_EQ(m_window.Next(0ms), LinkClosed());
  EXPECT_EQ(m_window.Next(0ms), std::nullopt);
  EXPECT_EQ(server.TryAccept(0ms), std::nullopt);
}

TEST_F(ClientLink, CopiesSpeakForTheSameClientAndEndIt) {
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  {
    CClientDataSource copy(m_client);
    EXPECT_EQ((copy = m_client).AskData("x", 1), 0);
    EXPECT_EQ(peer.ReceivePackage(5s), "x");
  }
  EXPECT_EQ(g_pClientCommThread, nullptr);
  EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
}

TEST_F(ClientLink, NewObjectForgetsTheClientThatGoesOn) {
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  CClientCommThread* const forgotten = g_pClientCommThread;

  CClientDataSource newcomer;
  EXPECT_EQ(newcomer.IsOnline(), 0);
  EXPECT_EQ(newcomer.UnLink(), 0);
  EXPECT_EQ(LinkOther(server), 1);
  EXPECT_EQ(m_other_window.Next(5s), LinkUp());
  newcomer.UnLink();
  peer.SendPackage("still delivered");
  EXPECT_EQ(m_window.Next(5s), Package("still delivered"));

  g_pClientCommThread = forgotten;
  m_client.UnLink();
  EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
}

}  // namespace
}  // namespace testkit
