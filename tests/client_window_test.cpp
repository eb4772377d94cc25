// Where notifications go: to the window of the moment, to none, to one that is slow or gone.
#include "tests/support/client_window.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "client/client_slot.h"
#include "client/comm_thread.h"
#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"
#include "tests/support/fast_clock.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientWindows : public ClientTest {};

TEST_F(ClientWindows, LaterWindowGetsNothingThatCameBeforeIt) {
  FastClock fast(10);
  ScriptedServer server;
  const std::pair<unsigned int, unsigned int> nowhere[] = {
      {0, 0}, {0, m_window.Message()}, {m_window.Handle(), 0}};
  for (const auto& [window, message] : nowhere) {
    ASSERT_EQ(LinkClient(&m_client, {At(server)}, window, message), 1);
    Peer peer = server.Accept(5s);
    peer.SendPackage("kept");
    peer.Close();
    // The client links again only when it is done with all that the first link brought.
    Peer again = server.Accept(5s);
    EXPECT_EQ(m_window.Next(0ms), std::nullopt);
    m_client.ChangeReceieveWnd(m_window.Handle(), m_window.Message());
    again.SendPackage("late");
    std::optional<Notification> first = m_window.Next(5s);
    if (first == LinkUp()) first = m_window.Next(5s);  // the second link's, still in time
    EXPECT_EQ(first, Package("late"));

    char* const kept = g_pClientCommThread->PopRecvPkg();
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(Bytes(kept, 8), Bytes("\4\0\0\0kept", 8));
    m_client.FreeBuffer(kept);
    m_client.UnLink();
  }
}

TEST_F(ClientWindows, ChangeSendsWhatFollowsElsewhere) {
  ScriptedServer server;
  ClientWindow second(&m_client, 0x0500);
  Peer peer = LinkWith(&server);
  peer.SendPackage("1");
  EXPECT_EQ(m_window.Next(5s), Package("1"));
  m_client.ChangeReceieveWnd(second.Handle(), second.Message());
  peer.SendPackage("2");
  peer.Close();
  EXPECT_EQ(second.Next(5s), Package("2"));
  EXPECT_EQ(second.Next(5s), LinkClosed());
  EXPECT_EQ(m_window.Next(0ms), std::nullopt);
}

TEST_F(ClientWindows, DestroyedWindowStopsNeitherTheLinkNorItsSuccessor) {
  EchoServer server;
  LinkWith(server);
  const Bytes big = PatternBody(20000);
  constexpr std::size_t kRequests = 500;
  for (std::size_t i = 0; i < kRequests; ++i) {
    EXPECT_EQ(Ask(big), 0);
    if (i == kRequests / 2) {
      EXPECT_EQ(m_window.Next(5s), Package(big));
      m_window.Destroy();  // with packages in it, and more on their way
    }
  }
  EXPECT_TRUE(server.WaitForPackages(kRequests, 10s));
  EXPECT_EQ(m_client.IsOnline(), 1);

  ClientWindow next(&m_client);
  m_client.ChangeReceieveWnd(next.Handle(), next.Message());
  EXPECT_EQ(Ask("for the next window"), 0);
  EXPECT_TRUE(next.WaitFor(Package("for the next window"), 10s));
}

TEST_F(ClientWindows, SlowWindowHoldsUpNobodyAndMissesNothing) {
  FastClock fast(10);
  ScriptedServer server;
  constexpr int kPackages = 9000;
  ASSERT_EQ(Link({At(server)}), 1);
  Peer peer = server.Accept(5s);
  Bytes stream;
  for (int i = 0; i < kPackages; ++i) stream += BuildPackage(std::to_string(i));
  peer.SendRaw(stream);
  peer.Close();
  // The client gets here only by handling everything above, and nobody has read a message yet.
  Peer again = server.Accept(10s);
  EXPECT_TRUE(WaitUntil([&] { return m_client.IsOnline() == 1; }, 5s));
  EXPECT_EQ(Ask("?"), 0);
  EXPECT_EQ(again.ReceivePackage(5s), "?");

  ASSERT_EQ(m_window.Next(0ms), LinkUp());
  for (int i = 0; i < kPackages; ++i) ASSERT_EQ(m_window.Next(0ms), Package(std::to_string(i)));
  EXPECT_EQ(m_window.Next(0ms), LinkClosed());
  EXPECT_EQ(m_window.Next(5s), LinkUp());
}

}  // namespace
}  // namespace testkit
