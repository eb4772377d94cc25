#pragma once

#include <gtest/gtest.h>

#include <climits>

#include "client/client_slot.h"
#include "client/clientdatasource.h"
#include "client/ftwindow.h"
#include "tests/support/clock.h"
#include "tests/support/servers.h"

namespace testkit {

constexpr std::uint32_t kOneCheckMs = 2100;  // a little more than the client's timers take

// What a window is told: one of FTLinkEvent, or 0 and the body of a package.
using Notification = std::pair<int, Bytes>;

// Fails the test when a message carries another window's number or another message number.
class ClientWindow {
 public:
  explicit ClientWindow(CClientDataSource* client, unsigned int message = 0x0401)
      : m_client(client), m_message(message), m_handle(FTCreateWindow()) {}
  ~ClientWindow() { Destroy(); }

  unsigned int Handle() const { return m_handle; }
  unsigned int Message() const { return m_message; }

  std::optional<Notification> Next(Milliseconds limit) {
    FTWindowMsg taken{};
    const auto limit_ms = static_cast<int>(limit.count());
    if (FTWaitMessage(m_handle, &taken, limit_ms) != 1) return std::nullopt;
    EXPECT_EQ(taken.window, m_handle);
    EXPECT_EQ(taken.message, m_message);
    if (taken.wParam == 0) return Notification(static_cast<int>(taken.lParam), "");
    char* const body = reinterpret_cast<char*>(taken.wParam);
    Notification package(0, Bytes(body, static_cast<std::size_t>(taken.lParam)));
    m_client->FreeBuffer(body);
    return package;
  }
  // The limit is for each message up to this one.
  bool WaitFor(const Notification& last, Milliseconds limit) {
    while (const auto next = Next(limit)) {
      if (*next == last) return true;
    }
    return false;
  }

  void Destroy() {
    if (m_handle != 0) FTDestroyWindow(std::exchange(m_handle, 0U));
  }

 private:
  CClientDataSource* const m_client;
  const unsigned int m_message;
  unsigned int m_handle;
};

struct Endpoint {
  std::string host;
  int port;
};

inline Endpoint At(const OwnPort& server) {
  return {server.Host(), server.Port()};
}

// Links a client to at most five servers; the rest of the list is empty.
inline int LinkClient(CClientDataSource* client, std::vector<Endpoint> servers, unsigned int window,
                      unsigned int message) {
  servers.resize(5);
  const auto host = [&](std::size_t i) {
    return servers[i].host.empty() ? nullptr : servers[i].host.c_str();
  };
  const auto port = [&](std::size_t i) { return servers[i].port; };
  return client->Link(host(0), port(0), host(1), port(1), host(2), port(2), host(3), port(3),
                      host(4), port(4), window, message);
}

// One question to a balance server: its answer's body, or nothing. Throws std::logic_error when the
// result and the answer do not fit, or a client is left.
inline std::optional<Bytes> AskBalance(CClientDataSource* client, std::string host, int port,
                                       char question) {
  char* answer = host.data();
  const int result = client->GetBalanceServer(host.data(), port, question, &answer);
  if (result != (answer == nullptr ? 0 : 1)) throw std::logic_error("an odd balance answer");
  if (g_pClientCommThread != nullptr) throw std::logic_error("a balance question left a client");
  if (answer == nullptr) return std::nullopt;
  Bytes body(answer + 4, BigEndianAt({answer[3], answer[2], answer[1], answer[0]}, 0));
  client->FreeBuffer(answer);
  return body;
}

// A host application: the process's one client, unlinked at the end, and a window for it.
class ClientTest : public ::testing::Test {
 protected:
  static Notification LinkUp() { return {LINK_EVENT_UP, {}}; }
  static Notification ConnectFailed() { return {LINK_EVENT_CONNECT_FAILED, {}}; }
  static Notification LinkClosed() { return {LINK_EVENT_CLOSED, {}}; }
  static Notification Package(Bytes body) { return {0, std::move(body)}; }

  int Link(std::vector<Endpoint> servers) {
    return LinkClient(&m_client, std::move(servers), m_window.Handle(), m_window.Message());
  }
  Peer TakeLink(ScriptedServer* server) {
    Peer peer = server->Accept(kLimit);
    EXPECT_EQ(m_window.Next(kLimit), LinkUp());
    return peer;
  }
  Peer LinkWith(ScriptedServer* server) {
    EXPECT_EQ(Link({At(*server)}), 1);
    return TakeLink(server);
  }
  void LinkWith(const AnsweringServer& server) {
    EXPECT_EQ(Link({At(server)}), 1);
    EXPECT_EQ(m_window.Next(kLimit), LinkUp());
  }
  int Ask(const Bytes& body) {
    return m_client.AskData(body.data(), static_cast<unsigned int>(body.size()));
  }

  static constexpr std::chrono::seconds kLimit{5};

  CClientDataSource m_client;
  ClientWindow m_window{&m_client};
};

}  // namespace testkit
