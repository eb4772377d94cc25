#include "tools/server/recording.h"

#include <algorithm>

#include "tools/capture/recorded_link.h"

Recording::Recording(const std::string& path, const ReplayPlan& plan) : m_plan(plan) {
  for (const capture::RecordedLink& link : capture::ReadRecordedLinks(path)) {
    m_links.push_back(std::make_shared<const Replay>(link));
  }
}

bool Recording::HasHeartbeats() const {
  return std::any_of(m_links.begin(), m_links.end(),
                     [](const auto& link) { return link->heartbeats; });
}

std::unique_ptr<Behaviour> Recording::PlayNext(const FTTime& start) {
  const std::shared_ptr<const Replay> link = m_links[m_next];
  m_next = (m_next + 1) % m_links.size();
  return std::make_unique<ReplayPlayer>(link, m_plan.speed, m_plan.once && m_next == 0, start);
}
