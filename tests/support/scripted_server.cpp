#include "tests/support/scripted_server.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace testkit {

ScriptedServer::ScriptedServer(int receive_buffer) {
  if (receive_buffer > 0) SetReceiveBuffer(m_socket, receive_buffer);
  ListenAgain();
}

Peer ScriptedServer::Accept(std::chrono::milliseconds limit) {
  std::optional<Peer> peer = TryAccept(limit);
  if (!peer) {
    throw std::runtime_error("nobody linked to port " + std::to_string(Port()) + " within " +
                             std::to_string(limit.count()) + " ms");
  }
  return std::move(*peer);
}

std::optional<Peer> ScriptedServer::TryAccept(std::chrono::milliseconds limit) {
  if (!m_is_listening) throw std::logic_error("a server that does not listen accepts nobody");
  const Deadline deadline(limit);
  while (WaitReady(m_socket, Direction::kRead, deadline)) {
    Descriptor accepted = AcceptWaiting(m_socket);
    if (accepted.Get() >= 0) return Peer(std::move(accepted));
  }
  return std::nullopt;
}

void ScriptedServer::StopListening() {
  EndListening(&m_socket);
  m_is_listening = false;
}

void ScriptedServer::ListenAgain() {
  StartListening(m_socket, 64);
  m_is_listening = true;
}

}  // namespace testkit
