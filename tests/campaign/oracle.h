#pragma once

#include <chrono>
#include <map>

#include "tests/support/wire.h"

namespace campaign {

using testkit::Bytes;

// The client did something that it must not do.
struct Fault : std::logic_error {
  using std::logic_error::logic_error;
};

inline void Require(bool condition, const char* what) {
  if (!condition) throw Fault(what);
}

// Knows what servers sent and what the host was told, and throws a Fault at what must not be. Where
// the order of two threads decides, both outcomes are right.
class Oracle {
 public:
  // What the servers do. A link that was spoiled may end and lose packages, the
  // others may not.
  std::uint32_t AddLink(std::size_t entry);
  Bytes MakePackage(std::uint32_t link, std::size_t size, std::uint32_t request = 0);
  void AddForeign(const Bytes& body) { ++m_foreign[body]; }  // a package without a number
  void Spoil(std::uint32_t link) { m_links[link - 1].spoiled = true; }
  void SpoilAll();
  void SpoilNewLinks(bool spoil) { m_spoils = spoil; }
  void EndsInOrder(std::uint32_t link) { m_links[link - 1].in_order = true; }
  std::uint32_t TakeRequest(const Bytes& body);  // its number; 0: the balance question's

  // What the host does.
  Bytes MakeRequest(std::uint32_t thread, std::size_t size);
  void Begin(std::size_t entries, bool has_window);
  void End();
  void Blind();  // from now on notifications may be lost
  void See();    // until now
  void TicksPass(std::uint32_t milliseconds);
  void WatchdogMayBite() { m_watchdog = true; }  // until the end of the session

  // What the host is told.
  void OnEvent(std::intptr_t link_event);
  void OnBody(const Bytes& body);

  bool IsUp() const { return m_state != State::kDown; }  // or may be
  bool KnowsItIsUp() const { return m_state == State::kUp; }
  int Attempts() const { return m_attempts; }
  std::uint32_t LastAnswered() const { return m_last_answered; }
  std::uint64_t Losses() const { return m_losses; }
  std::uint64_t Packages() const { return m_packages; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class State { kDown, kUp, kUnknown };

  struct Link {
    std::size_t entry;
    bool spoiled, in_order = false;
    std::uint64_t last_data;
    std::uint32_t sent = 0, next = 0;
  };

  void CheckTurn(std::uint32_t number);
  void CheckEnd();

  std::vector<Link> m_links;  // number 1 first
  std::map<Bytes, int> m_foreign;
  std::map<std::uint32_t, std::uint32_t> m_asked, m_arrived;  // last request of each thread
  State m_state = State::kDown;
  int m_attempts = 0;  // that ended, in this session
  std::size_t m_entries = 0;
  std::uint32_t m_current = 0;  // the link whose packages come; 0: not known
  bool m_blind = false, m_spoils = false, m_events_lost = false, m_watchdog = false;
  Clock::time_point m_begin;
  std::uint64_t m_ticks = 0, m_losses = 0, m_packages = 0;
  std::uint32_t m_last_answered = 0;
};

}  // namespace campaign
