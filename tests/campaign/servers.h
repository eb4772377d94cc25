#pragma once

#include "tests/campaign/oracle.h"
#include "tests/support/client_test.h"

namespace campaign {

// One entry of the server list that the client is given. Behind the first entry, one without a port
// ends the list.
enum class Entry : std::uint8_t { kServer, kRefusing, kMute, kNoAddress, kNoPort };
enum class End : std::uint8_t { kHalfClose, kClose, kReset };
enum class Greeting : std::uint8_t { kPackage, kNothing, kHalfClose, kClose, kReset };
enum class Answering : std::uint8_t { kAtOnce, kLater, kDeaf };

// All servers of a schedule. What is sent or ended is the link that was accepted last, if any.
class Servers {
 public:
  Servers(const std::vector<Entry>& entries, Oracle* oracle);

  std::vector<testkit::Endpoint> Endpoints() const { return m_endpoints; }
  std::size_t FirstServer() const { return m_first; }
  std::size_t Usable() const { return m_usable; }  // of the entries, from the first on
  void Turn();                                     // accepts, reads and answers what is there
  void Set(Greeting greeting) { m_greeting = greeting; }
  void Set(Answering answering) { m_answering = answering; }
  void Heal();  // greet, read and answer from now on, and end links that no answer can pass

  void SendPackage(std::size_t size, std::size_t piece = Bytes::npos);  // in pieces of this size
  void SendForeign(const Bytes& body);
  void SendBytes(const Bytes& bytes);
  void SendGarbage(const Bytes& bytes);  // the client may lose the link by it
  void EndLink(End how);
  void SendHeartbeats();  // on all links

 private:
  struct Listening {
    std::size_t entry;
    testkit::ScriptedServer server;
  };
  struct Link {
    std::uint32_t number;
    testkit::Peer peer;
    std::vector<std::uint32_t> kept{};  // requests that wait for their answers
    bool sends = true, open = true, garbled = false;
  };

  Link* Last();
  void Greet(Link* link);
  void Serve(Link* link);
  void Finish(Link* link, End how);
  template <typename Action>
  void Try(Link* link, Action action);

  Oracle* const m_oracle;
  std::vector<testkit::Endpoint> m_endpoints;
  std::size_t m_first, m_usable;
  std::list<Listening> m_listening;
  std::list<testkit::ClosedPort> m_closed;
  std::list<Link> m_links;
  Greeting m_greeting = Greeting::kPackage;
  Answering m_answering = Answering::kAtOnce;
};

}  // namespace campaign
