// Which server the client turns to, and what the window is told about it.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/support/client_test.h"
#include "tests/support/dead_ports.h"
#include "tests/support/fast_clock.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

class ClientFailover : public ClientTest {};

TEST_F(ClientFailover, ServersTakeTurnsInTheOrderOfTheList) {
  FastClock fast(20);
  std::vector<ScriptedServer> servers(5);
  std::vector<Endpoint> list;
  for (const ScriptedServer& server : servers) list.push_back(At(server));
  ASSERT_EQ(Link(list), 1);
  for (const std::size_t turn : {0U, 1U, 2U, 3U, 4U, 0U}) {
    Peer peer = TakeLink(&servers[turn]);
    turn % 2 == 0 ? peer.Close() : peer.Reset();
    EXPECT_EQ(m_window.Next(5s), LinkClosed());
  }
}

TEST_F(ClientFailover, AddressesThatCannotBeFailAtOnce) {
  FastClock fast(2);
  ScriptedServer server;
  const int port = server.Port();
  EXPECT_EQ(m_client.Link(server.Host(), 0, nullptr, port, "", port, "localhost", port,
                          server.Host(), port, m_window.Handle(), m_window.Message()),
            1);
  for (int failed = 0; failed < 4; ++failed) EXPECT_EQ(m_window.Next(4s), ConnectFailed());
  TakeLink(&server);
  EXPECT_EQ(server.TryAccept(0ms), std::nullopt) << "a host that is no address was linked to";
}

TEST_F(ClientFailover, ServersThatAreMuteArePassedOver) {
  FastClock fast(20);
  FullBacklogPort never_links;
  ScriptedServer never_sends;
  ScriptedServer server;
  ASSERT_EQ(Link({At(never_links), At(never_sends), At(server)}), 1);
  EXPECT_EQ(m_window.Next(5s), ConnectFailed());
  Peer peer = TakeLink(&never_sends);
  EXPECT_EQ(m_window.Next(10s), LinkClosed());
  EXPECT_GE(peer.WaitForHeartbeats(1, 0ms), 1) << "the client itself was not silent";
  TakeLink(&server);
}

}  // namespace
}  // namespace testkit
