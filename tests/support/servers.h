#pragma once

#include <atomic>
#include <functional>
#include <list>

#include "tests/support/peer.h"

namespace testkit {

// A port that is its owner's alone, and refuses connects until its owner listens.
class OwnPort {
 public:
  const char* Host() const { return kLoopbackHost; }
  std::uint16_t Port() const { return LocalPort(m_socket); }

 protected:
  OwnPort() {
    platform::SetBlocking(m_socket.Get(), false);
    if (!platform::BindSocket(m_socket.Get(), Loopback(0))) throw std::runtime_error("no port");
  }

  const Descriptor m_socket = OpenSocket();
};

class ClosedPort : public OwnPort {};

// Leaves every connect without an answer, as a host that is switched off does.
class FullBacklogPort : public OwnPort {
 public:
  FullBacklogPort() {
    Listen(m_socket, 0);
    // A connect within this machine that has not come about by then finds the backlog full.
    while (auto caller = Peer::TryConnect(Port(), Milliseconds(500))) {
      m_callers.push_back(std::move(*caller));
    }
  }

 private:
  std::vector<Peer> m_callers;  // have all the places, and are never accepted
};

// A server whose part the test plays step by step. The system completes connects by itself, so a
// client is linked before Accept is called.
class ScriptedServer : public OwnPort {
 public:
  // With a size for each link's buffers: a slow reader.
  explicit ScriptedServer(int buffer_bytes = 0) {
    if (buffer_bytes > 0) LimitBuffers(m_socket, buffer_bytes);
    Listen(m_socket, 128);
  }

  // The next link in the order of connecting; nothing when nobody comes in time.
  std::optional<Peer> TryAccept(Milliseconds limit) {
    const FaultFree guard;
    if (!WaitFor(Readiness::kReadable, m_socket, limit)) return std::nullopt;
    platform::SocketAddress caller{};
    platform::SocketError error{};
    Descriptor accepted(platform::AcceptSocket(m_socket.Get(), &caller, &error));
    return accepted.Get() < 0 ? std::nullopt : std::optional<Peer>(std::move(accepted));
  }
  Peer Accept(Milliseconds limit) { return TryAccept(limit).value(); }
};

// Played by a thread of its own, for tests whose thread is in a blocking call. Returns heartbeats.
class AnsweringServer : public ScriptedServer {
 public:
  // Bodies to send back for one data package; called on the server's thread.
  using Answer = std::function<std::vector<Bytes>(const Bytes& question)>;

  explicit AnsweringServer(Answer answer) : m_answer(std::move(answer)) {}
  ~AnsweringServer() {
    m_stopping = true;
    m_thread.join();
  }

 private:
  void Run() {
    std::list<Peer> links;
    while (!m_stopping) {
      if (auto peer = TryAccept(Milliseconds(1))) links.push_back(std::move(*peer));
      links.remove_if([this](Peer& peer) { return !Serve(&peer); });
    }
  }
  bool Serve(Peer* peer) {
    try {
      const LinkEnd end = peer->WaitClosed(Milliseconds(0));
      while (auto body = peer->ReceiveAny(Milliseconds(0))) {
        const bool is_heartbeat = IsHeartbeat(*body);
        const auto answers = is_heartbeat ? std::vector<Bytes>{*body} : m_answer(*body);
        for (const Bytes& answer : answers) peer->SendPackage(answer);
      }
      return end == LinkEnd::kStillOpen;
    } catch (const std::runtime_error&) {  // the other side is gone, or sent no package
      return false;
    }
  }

  const Answer m_answer;
  std::atomic<bool> m_stopping{false};
  std::thread m_thread{[this] { Run(); }};
};

class EchoServer : public AnsweringServer {
 public:
  EchoServer() : AnsweringServer([](const Bytes& body) { return std::vector<Bytes>{body}; }) {}
};

}  // namespace testkit
