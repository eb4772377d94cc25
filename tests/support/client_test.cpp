#include "tests/support/client_test.h"

#include <utility>

namespace testkit {

using namespace std::chrono_literals;

int LinkClient(CClientDataSource* client, std::vector<Endpoint> servers, unsigned int window,
               unsigned int message) {
  servers.resize(5);
  const auto host = [&](std::size_t i) { return servers[i].host.c_str(); };
  const auto port = [&](std::size_t i) { return servers[i].port; };
  return client->Link(host(0), port(0), host(1), port(1), host(2), port(2), host(3), port(3),
                      host(4), port(4), window, message);
}

int ClientTest::Link(std::vector<Endpoint> servers) {
  return LinkClient(&m_client, std::move(servers), m_window.Handle(), m_window.Message());
}

Peer ClientTest::TakeLink(ScriptedServer* server) {
  Peer peer = server->Accept(5s);
  EXPECT_EQ(m_window.Next(5s), LinkUp());
  return peer;
}

Peer ClientTest::LinkWith(ScriptedServer* server) {
  EXPECT_EQ(Link({At(*server)}), 1);
  return TakeLink(server);
}

void ClientTest::LinkWith(const AnsweringServer& server) {
  EXPECT_EQ(Link({At(server)}), 1);
  EXPECT_EQ(m_window.Next(5s), LinkUp());
}

int ClientTest::Ask(const Bytes& body) {
  return m_client.AskData(body.data(), static_cast<unsigned int>(body.size()));
}

}  // namespace testkit
