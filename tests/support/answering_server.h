#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/mailbox.h"
#include "tests/support/socket_io.h"
#include "tests/support/wire.h"

namespace testkit {

struct Arrival {
  Bytes body;
};

// A server that runs by itself on its own thread and serves any number of links, for tests whose
// thread is busy with a blocking call. It returns heartbeats.
//
//   AnsweringServer balance([](const Bytes&) { return std::vector<Bytes>{"10.0.0.7"}; });
//   ... ask balance.Host(), balance.Port() and see what the call gives ...
//
// All members may be called from any thread; the waits block for at most their limit. A malformed
// package ends its link and is kept in Fault(). The destructor ends all links.
class AnsweringServer : public OwnPort {
 public:
  using Milliseconds = std::chrono::milliseconds;
  // Bodies to send back for one data package; called on the server's thread.
  using Answer = std::function<std::vector<Bytes>(const Bytes& question)>;

  explicit AnsweringServer(Answer answer);
  ~AnsweringServer();

  // Waits for a number since the server began and says whether it was reached.
  bool WaitForPackages(std::size_t packages, Milliseconds limit) const {
    return m_packages.WaitFor(packages, limit);
  }
  // Waits until exactly this many links are open.
  bool WaitForOpenLinks(std::size_t links, Milliseconds limit) const;

  // Data packages of all links, in order of arrival.
  std::vector<Arrival> Packages() const { return m_packages.All(); }
  // The first malformed package, empty when there was none.
  std::string Fault() const { return m_faults.Count() == 0 ? "" : m_faults.All().front(); }

 private:
  struct Link {
    Descriptor socket;
    Bytes incoming;
    Bytes outgoing;
  };

  void Run();
  void WaitForWork() const;
  void AcceptAll();
  bool Serve(Link* link);
  void Handle(Link* link, Bytes body);

  const Answer m_answer;
  const Descriptor m_doorbell = OpenSocket();  // links to the server itself to wake it
  std::atomic<bool> m_stopping{false};
  std::list<Link> m_links;  // the server's thread only
  std::atomic<std::size_t> m_open_count{0};
  Mailbox<Arrival> m_packages;
  Mailbox<std::string> m_faults;
  std::thread m_thread;
};

// Sends every data package back.
class EchoServer : public AnsweringServer {
 public:
  EchoServer() : AnsweringServer([](const Bytes& body) { return std::vector<Bytes>{body}; }) {}
};

}  // namespace testkit
