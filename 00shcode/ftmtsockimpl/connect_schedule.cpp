#include "00shcode/ftmtsockimpl/connect_schedule.h"

#include <utility>

void CFTConnectSchedule::Add(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec,
                             const FTTime& now) {
  const std::string link_id = link->link_id;
  const CFTScopedLock guard(&m_lock);
  m_entries[link_id] = Entry{std::move(link), now, delay_sec};
}

std::unique_ptr<FTLinkInfo> CFTConnectSchedule::Take(const std::string& link_id) {
  const CFTScopedLock guard(&m_lock);
  const auto found = m_entries.find(link_id);
  if (found == m_entries.end()) return nullptr;
  auto link = std::move(found->second.link);
  m_entries.erase(found);
  return link;
}

std::unique_ptr<FTLinkInfo> CFTConnectSchedule::TakeDue(const FTTime& now) {
  const CFTScopedLock guard(&m_lock);
  for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
    const std::int64_t delay_ms = std::int64_t{entry->second.delay_sec} * 1000;
    if (DiffMs(now, entry->second.stamp) < delay_ms) continue;
    auto link = std::move(entry->second.link);
    m_entries.erase(entry);
    return link;
  }
  return nullptr;
}
