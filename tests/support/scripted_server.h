#pragma once

#include <chrono>
#include <optional>

#include "tests/support/peer.h"

namespace testkit {

// A server on a port of this machine whose part the test plays step by step:
//
//   ScriptedServer server;
//   ... let the client link to server.Host(), server.Port() ...
//   Peer peer = server.Accept(5s);
//   peer.SendPackage("abc");
//   EXPECT_EQ(peer.ReceivePackage(5s), "question");
//
// The system completes connects by itself, so a client is linked before Accept is called.
class ScriptedServer : public OwnPort {
 public:
  // receive_buffer > 0: what each link's receive buffer holds at most, for slow readers.
  explicit ScriptedServer(int receive_buffer = 0);

  // The next link in the order of connecting; throws std::runtime_error when nobody comes in time.
  Peer Accept(std::chrono::milliseconds limit);
  // Nothing when nobody comes in time.
  std::optional<Peer> TryAccept(std::chrono::milliseconds limit);

  // Connects are refused from here on, links that nobody accepted are reset, and the port stays
  // this server's: ListenAgain brings it back.
  void StopListening();
  void ListenAgain();

 private:
  bool m_is_listening = false;
};

}  // namespace testkit
