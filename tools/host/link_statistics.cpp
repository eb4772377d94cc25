#include "tools/host/link_statistics.h"

#include "client/clientdatasource.h"

void LinkStatistics::CountLinkEvent(std::intptr_t link_event, const FTTime& now) {
  if (link_event == LINK_EVENT_UP) {
    ++m_links;
    Enter(LinkState::kUp, now);
  } else if (link_event == LINK_EVENT_CLOSED) {
    ++m_losses;
    Enter(LinkState::kLost, now);
  } else {
    ++m_failures;
  }
}

void LinkStatistics::CountPackage(std::int64_t bytes, const FTTime& now) {
  m_received.Count(SecondOf(now), bytes);
  m_last_package = now;
}

void LinkStatistics::CountRequest(std::int64_t bytes, const FTTime& now) {
  m_sent.Count(SecondOf(now), bytes);
}

std::optional<std::int64_t> LinkStatistics::GetMsSincePackage(const FTTime& now) const {
  if (!m_last_package) return {};
  return ft::ElapsedMs(now, *m_last_package);
}

void LinkStatistics::Enter(LinkState state, const FTTime& now) {
  m_state = state;
  m_state_since = now;
}
