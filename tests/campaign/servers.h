#pragma once

#include "tests/campaign/oracle.h"
#include "tests/campaign/schedule.h"
#include "tests/support/client_test.h"

namespace campaign {

// All servers of a schedule, on one thread of their own beside the one that plays the steps.
class Servers {
 public:
  Servers(const std::vector<Entry>& entries, Oracle* oracle);
  ~Servers();

  std::vector<testkit::Endpoint> Endpoints() const { return m_endpoints; }
  std::size_t FirstServer() const { return m_listening.front().entry; }
  void Play(const Step& step);
  void Heal();  // greet, read and answer from now on, and end links that no answer can pass
  void SendHeartbeats();

 private:
  using Guard = std::lock_guard<std::mutex>;
  enum class Greeting { kPackage, kNothing, kHalfClose, kClose, kReset };
  enum class Answering { kAtOnce, kLater, kDeaf };

  struct Listening {
    std::size_t entry;
    testkit::ScriptedServer server;
  };
  struct Link {
    std::uint32_t number;
    testkit::Peer peer;
    std::vector<std::uint32_t> kept;  // requests that wait for their answers
    bool sends = true, open = true, garbled = false;
  };

  void Run();
  void Greet(Link* link);
  void Serve(Link* link);
  void Answer(Link* link);
  void SendPackages(Link* link, std::uint32_t count, std::uint32_t most);
  void SendOdd(Link* link, const Step& step);
  void SendHostileLength(Link* link, const Step& step);
  void End(Link* link, Act how);
  template <typename Action>
  void Try(Link* link, Action action);

  Oracle* const m_oracle;
  std::vector<testkit::Endpoint> m_endpoints;
  std::list<Listening> m_listening;
  std::list<testkit::ClosedPort> m_closed;
  std::mutex m_lock;  // guards what follows
  std::list<Link> m_links;
  Greeting m_greeting = Greeting::kPackage;
  Answering m_answering = Answering::kAtOnce;
  std::atomic<bool> m_stopping{false};
  std::thread m_thread;
};

}  // namespace campaign
