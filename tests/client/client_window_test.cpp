// Where notifications go: to the window of the moment, to none, to one that is gone.
#include "tests/support/client_window.h"

#include <gtest/gtest.h>

#include <optional>

#include "client/client_slot.h"
#include "client/comm_thread.h"
#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"
#include "tests/support/fast_clock.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientWindows : public ClientTest {};

TEST_F(ClientWindows, LaterWindowGetsNothingThatCameBeforeIt) {
  FastClock fast(10);
  ScriptedServer server;
  const unsigned int nowhere[][2] = {{0, m_window.Message()}, {m_window.Handle(), 0}};
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

  ClientWindow next(&m_client, 0x0500);
  m_client.ChangeReceieveWnd(next.Handle(), next.Message());
  EXPECT_EQ(Ask("for the next window"), 0);
  EXPECT_TRUE(next.WaitFor(Package("for the next window"), 10s));
}

}  // namespace
}  // namespace testkit
