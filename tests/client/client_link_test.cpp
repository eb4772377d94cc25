// What the client's calls answer in each of its states, and which of its links it listens to.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <optional>
#include <string>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "client/client_slot.h"
#include "client/comm_thread.h"
#include "client/package.h"
#include "tests/support/client_test.h"
#include "tests/support/manual_clock.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

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

TEST_F(ClientLink, EveryStateGivesItsAnswersAndASecondLinkIsRefused) {
  ScriptedServer other_server;
  ExpectNoClient();
  Peer peer = LinkWith(&m_server);
  EXPECT_EQ(LinkOther(other_server), 0);
  ExpectLinkTo(&peer);

  peer.Close();
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
  EXPECT_EQ(m_client.IsOnline(), 0);
  EXPECT_EQ(Ask("nowhere to go"), -1);

  m_clock.Advance(kOneCheckMs);
  Peer second = TakeLink(&m_server);
  ExpectLinkTo(&second);

  EXPECT_EQ(m_client.UnLink(), 0);
  EXPECT_NE(second.WaitClosed(5s), LinkEnd::kStillOpen);
  ExpectNoClient();
  EXPECT_EQ(m_window.Next(0ms), std::nullopt) << "an end on request is not reported";
  EXPECT_EQ(m_other_window.Next(0ms), std::nullopt);
}

TEST_F(ClientLink, UnLinkEmptiesNoWindowAndMakesRoomForOtherServers) {
  ScriptedServer other_server;
  Peer peer = LinkWith(&m_server);
  peer.SendPackage("posted in time");
  peer.Close();
  // Without a link there is no link id: the end, and all before it, has been posted.
  EXPECT_TRUE(WaitUntil([&] { return Ask("?") == -1; }, 5s));
  m_client.UnLink();

  EXPECT_EQ(LinkOther(other_server), 1);
  other_server.Accept(5s).SendPackage("new");
  EXPECT_EQ(m_other_window.Next(5s), LinkUp());
  EXPECT_EQ(m_other_window.Next(5s), Package("new"));
  EXPECT_EQ(m_window.Next(0ms), Package("posted in time"));
  EXPECT_EQ(m_window.Next(0ms), LinkClosed());
  EXPECT_EQ(m_window.Next(0ms), std::nullopt);
}

TEST_F(ClientLink, CopiesSpeakForTheSameClientAndEndIt) {
  Peer peer = LinkWith(&m_server);
  {
    CClientDataSource copy(m_client);
    EXPECT_EQ((copy = m_client).AskData("x", 1), 0);
    EXPECT_EQ(peer.ReceivePackage(5s), "x");
  }
  EXPECT_EQ(g_pClientCommThread, nullptr);
  EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
}

TEST_F(ClientLink, NewObjectForgetsTheClientThatGoesOn) {
  Peer peer = LinkWith(&m_server);
  CClientCommThread* const forgotten = g_pClientCommThread;

  CClientDataSource newcomer;
  ExpectNoClient();
  EXPECT_EQ(LinkOther(m_server), 1);
  EXPECT_EQ(m_other_window.Next(5s), LinkUp());
  newcomer.UnLink();
  peer.SendPackage("still delivered");
  EXPECT_EQ(m_window.Next(5s), Package("still delivered"));
  g_pClientCommThread = forgotten;
}

// Plays the engine: posts its messages about a link to the running client.
class PlayedLink {
 public:
  explicit PlayedLink(const std::string& link_id) { m_link->link_id = link_id; }

  void SendPackage(const Bytes& body) {
    auto package = std::make_unique<CFTBuffer>();
    ft::EncodePkg(package.get(), body.data(), static_cast<std::int32_t>(body.size()));
    Post(FTRecvPkgMsg::Make(m_link.get(), std::move(package)));
  }
  void ComeUp() { Post(FTLinkUpMsg::Make(Copy(), std::make_unique<FTLinkInfo>())); }
  void Fail() { Post(FTConnectFailedMsg::Make(Copy())); }
  void Close() { Post(FTLinkClosedMsg::Make(Copy(), FTCloseReason::kRecvFailed, m_link)); }

 private:
  std::unique_ptr<FTLinkInfo> Copy() { return std::make_unique<FTLinkInfo>(*m_link); }
  static void Post(FTMsg msg) { g_pClientCommThread->Post("", 1, std::move(msg)); }

  const std::shared_ptr<FTLinkInfo> m_link = std::make_shared<FTLinkInfo>();
};

TEST_F(ClientLink, LinksThatWereReplacedAreNotHeardAnyMore) {
  PlayedLink current("01000000");  // the first link of a client
  PlayedLink replaced("FF000000");
  Peer peer = LinkWith(&m_server);
  replaced.SendPackage("stale");
  replaced.Close();
  replaced.Fail();
  replaced.ComeUp();
  current.SendPackage("fresh");
  EXPECT_EQ(m_window.Next(5s), Package("fresh"));
  EXPECT_EQ(m_client.IsOnline(), 1);
  current.Close();
  current.SendPackage("after the end");
  current.Close();
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
  EXPECT_EQ(m_window.Next(200ms), std::nullopt);
}

}  // namespace
}  // namespace testkit
