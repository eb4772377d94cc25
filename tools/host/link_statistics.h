#pragma once

#include <cstdint>
#include <optional>

#include "00shcode/mytoolkit/clock.h"
#include "tools/host/flow_history.h"

enum class LinkState { kConnecting, kUp, kLost };

// What happened to a link so far. Each call gets the time of the tick clock, so that nothing waits.
class LinkStatistics {
 public:
  explicit LinkStatistics(const FTTime& now) : m_start(now), m_state_since(now) {}

  void CountLinkEvent(std::intptr_t link_event, const FTTime& now);
  void CountPackage(std::int64_t bytes, const FTTime& now);
  void CountRequest(std::int64_t bytes, const FTTime& now);

  LinkState GetState() const { return m_state; }
  std::int64_t GetMsInState(const FTTime& now) const { return ft::ElapsedMs(now, m_state_since); }
  std::optional<std::int64_t> GetMsSincePackage(const FTTime& now) const;

  std::int64_t GetLinks() const { return m_links; }
  std::int64_t GetLosses() const { return m_losses; }
  std::int64_t GetFailures() const { return m_failures; }  // attempts

  const FlowHistory& GetReceived() const { return m_received; }
  const FlowHistory& GetSent() const { return m_sent; }
  std::int64_t SecondOf(const FTTime& now) const { return ft::ElapsedMs(now, m_start) / 1000; }

 private:
  void Enter(LinkState state, const FTTime& now);

  FTTime m_start;
  FTTime m_state_since;
  LinkState m_state = LinkState::kConnecting;
  std::optional<FTTime> m_last_package;
  std::int64_t m_links = 0;
  std::int64_t m_losses = 0;
  std::int64_t m_failures = 0;
  FlowHistory m_received;
  FlowHistory m_sent;
};
