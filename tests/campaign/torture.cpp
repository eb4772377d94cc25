#include "tests/campaign/torture.h"

#include <iostream>

#include "tests/campaign/player.h"
#include "tests/support/process.h"

namespace campaign {

namespace {

using namespace std::chrono_literals;
using testkit::Call;

constexpr int kForEver = 100000;

struct Fault {
  Call call;
  int error;
  const char* name;
};
constexpr Fault kFaults[] = {
    {Call::kThread, EAGAIN, "thread"},     {Call::kSocket, EMFILE, "socket"},
    {Call::kDescriptor, EMFILE, "signal"}, {Call::kConnect, ENETUNREACH, "connect"},
    {Call::kSend, ECONNRESET, "send"},     {Call::kReceive, ECONNRESET, "receive"},
    {Call::kPoll, EINTR, "interrupted"},   {Call::kReceive, EAGAIN, "nothing to receive"}};
constexpr int kMostPolls = 40;  // their number differs from run to run

// Two servers, so that the second link does not depend on the first one's end.
class Scenario {
 public:
  Scenario() : m_servers({Entry::kServer, Entry::kServer}, &m_oracle) {}

  // With allocations of each call of the application failing from the nth on.
  void Play(int nth, int count) {
    m_host.FailAllocations(nth, count);
    m_host.Link();
    for (int i = 0; i < 2; ++i) {
      Await([&] { return m_oracle.IsUp(); });
      m_host.FailAllocations(nth, count);
      m_host.Ask(0, 20);
      Await([&] { return m_oracle.LastAnswered() == m_host.LastAsked(); });
      if (i == 0) m_servers.Play({Act::kHalfClose, 0, 0});
      if (i == 0) Await([&] { return !m_oracle.IsUp(); });
    }
    m_host.FailAllocations(nth, count);
    m_host.UnLink();
  }
  // The fault has ended: a new client, or the old one, works.
  void PlayWell() {
    if (m_host.IsRunning()) m_host.UnLink();
    m_host.Link();
    const auto end = std::chrono::steady_clock::now() + 20s;
    bool answered = false;
    while (!answered && std::chrono::steady_clock::now() < end) {
      if (Await([&] { return m_oracle.IsUp(); })) m_host.Ask(0, 20);
      answered = Await([&] { return m_oracle.LastAnswered() == m_host.LastAsked(); });
    }
    if (!answered) m_oracle.Fail("no answer after the fault");
    m_host.UnLink();
    m_host.CheckNothingIsPosted();
    m_oracle.Check();
  }

 private:
  // Or does not come, which a fault may be the reason for.
  template <typename Condition>
  bool Await(Condition condition) {
    for (int i = 0; i < 60 && !condition(); ++i) {
      if (!m_host.Take(1)) m_clock.Advance(300);
      m_host.WakeClient();
      m_oracle.TicksPass(300);
      m_oracle.Check();
    }
    return condition();
  }

  testkit::ManualClock m_clock;
  Oracle m_oracle;
  Servers m_servers;
  Host m_host{m_servers.Endpoints(), &m_oracle};
};

int PlayWith(const Fault* fault, int nth, int count) {
  const testkit::HeldResources before;
  int calls = 0;
  {
    Scenario scenario;
    {
      testkit::SocketFaults faults;
      faults.AtMost(Call::kPoll, 3);
      if (fault != nullptr && nth > 0) {
        faults.Fail(fault->call, 0, nth - 1);
        faults.Fail(fault->call, fault->error, count);
      }
      scenario.Play(fault == nullptr ? nth : 0, count);
      if (fault != nullptr) calls = static_cast<int>(faults.Calls(fault->call));
    }
    testkit::SocketFaults none;
    none.AtMost(Call::kPoll, 3);
    scenario.PlayWell();
  }
  if (!before.AreRestored(5s)) throw std::runtime_error("left behind: " + before.Difference());
  return calls;
}

void PlayNamed(const Fault* fault, int nth, int count) {
  try {
    PlayWith(fault, nth, count);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(std::string(fault == nullptr ? "memory" : fault->name) + " call " +
                             std::to_string(nth) + ", " + std::to_string(count) +
                             " times: " + error.what());
  }
}

}  // namespace

int Torture() {
  constexpr int kAllocations = 40;  // more than one call of the application makes
  int played = 0;
  for (const Fault& fault : kFaults) {
    const int calls = std::min(PlayWith(&fault, 0, 0), kMostPolls);
    for (int nth = 1; nth <= calls; ++nth) {
      for (const int count : {1, kForEver}) PlayNamed(&fault, nth, count);
    }
    std::cout << fault.name << ": " << calls << " calls\n";
    played += 2 * calls;
  }
  for (int nth = 1; nth <= kAllocations; ++nth) {
    for (const int count : {1, kForEver}) PlayNamed(nullptr, nth, count);
  }
  std::cout << "memory: " << kAllocations << " allocations of each call\n";
  return played + 2 * kAllocations;
}

}  // namespace campaign
