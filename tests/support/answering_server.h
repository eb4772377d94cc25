#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/peer.h"
#include "tests/support/socket_io.h"
#include "tests/support/wake_event.h"
#include "tests/support/wire.h"

namespace testkit {

// A server that runs by itself on its own thread and serves any number of links, for tests whose
// thread is busy with a blocking call:
//
//   AnsweringServer balance([](const Bytes&) { return std::vector<Bytes>{"10.0.0.7"}; });
//   ... ask balance.Host(), balance.Port() and see what the call gives ...
//
// All members may be called from any thread; the waits block for at most their limit. A malformed
// package ends its link and is kept in Fault(). The destructor ends all links.
class AnsweringServer {
 public:
  using Milliseconds = std::chrono::milliseconds;
  // Bodies to send back for one data package; called on the server's thread.
  using Answer = std::function<std::vector<Bytes>(const Bytes& question)>;
  enum class Heartbeats { kSwallow, kReturn };

  explicit AnsweringServer(Answer answer, Heartbeats heartbeats = Heartbeats::kReturn);
  ~AnsweringServer();
  AnsweringServer(const AnsweringServer&) = delete;
  AnsweringServer& operator=(const AnsweringServer&) = delete;

  const char* Host() const { return kLoopbackHost; }
  std::uint16_t Port() const { return m_port; }

  // Each waits for a number since the server began and says whether it was reached.
  bool WaitForAccepted(std::size_t links, Milliseconds limit) const;
  bool WaitForPackages(std::size_t packages, Milliseconds limit) const;
  bool WaitForHeartbeats(std::size_t heartbeats, Milliseconds limit) const;
  // Waits until exactly this many links are open.
  bool WaitForOpenLinks(std::size_t links, Milliseconds limit) const;

  std::vector<Arrival> Packages() const;  // data packages of all links, in order of arrival
  std::string Fault() const;              // the first malformed package, empty when none

  // To all links that are open now. These return at once; the server's thread does it.
  void SendToAll(const Bytes& body);
  void SendRawToAll(const Bytes& bytes);
  void ResetAll();

 private:
  struct Link {
    Descriptor socket;
    Bytes incoming;
    Bytes outgoing;
  };
  using Order = std::function<void(std::list<Link>&)>;

  void Run();
  void WaitForWork() const;
  bool CarryOutOrders();
  void AcceptAll();
  bool Serve(Link& link);
  void Handle(Link& link, Bytes body);
  void Give(Order order);
  template <typename Change>
  void Report(Change change);
  template <typename Reached>
  bool WaitFor(Milliseconds limit, Reached reached) const;

  const Answer m_answer;
  const Heartbeats m_heartbeats;
  const Descriptor m_listening;
  const std::uint16_t m_port;
  const WakeEvent m_wake;
  std::list<Link> m_links;  // the server's thread only

  mutable std::mutex m_lock;  // guards what follows
  mutable std::condition_variable m_changed;
  bool m_stopping = false;
  std::vector<Order> m_orders;
  std::size_t m_accepted_count = 0;
  std::size_t m_open_count = 0;
  std::size_t m_heartbeat_count = 0;
  std::vector<Arrival> m_packages;
  std::string m_fault;

  std::thread m_thread;
};

// Sends every data package back.
class EchoServer : public AnsweringServer {
 public:
  EchoServer() : AnsweringServer([](const Bytes& body) { return std::vector<Bytes>{body}; }) {}
};

}  // namespace testkit
