#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/clientdatasource.h"
#include "tests/support/answering_server.h"
#include "tests/support/client_window.h"
#include "tests/support/peer.h"
#include "tests/support/scripted_server.h"
#include "tests/support/wire.h"

namespace testkit {

constexpr std::uint32_t kOneCheckMs = 2100;  // a little more than the client's timers take

struct Endpoint {
  std::string host;
  int port;
};

template <typename Server>
Endpoint At(const Server& server) {
  return {server.Host(), server.Port()};
}

// Links a client to at most five servers; the rest of the list is empty.
int LinkClient(CClientDataSource* client, std::vector<Endpoint> servers, unsigned int window,
               unsigned int message);

// A host application: the process's one client, unlinked at the end, and a window for it.
class ClientTest : public ::testing::Test {
 protected:
  int Link(std::vector<Endpoint> servers);
  // Takes the event of a link that comes up, and returns the server's end of it.
  Peer TakeLink(ScriptedServer* server);
  // Links to this server alone and takes the link event.
  Peer LinkWith(ScriptedServer* server);
  void LinkWith(const AnsweringServer& server);
  int Ask(const Bytes& body);

  CClientDataSource m_client;
  ClientWindow m_window{&m_client};
};

}  // namespace testkit
