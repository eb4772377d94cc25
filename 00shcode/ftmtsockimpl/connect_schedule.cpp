#include "00shcode/ftmtsockimpl/connect_schedule.h"

#include <utility>

namespace {

bool IsOver(const FTTime& now, const FTTime& stamp, std::int32_t delay_sec) {
  return ft::ElapsedMs(now, stamp) >= std::int64_t{delay_sec} * 1000;
}

}  // namespace

std::unique_ptr<FTLinkInfo> CFTConnectSchedule::Add(std::unique_ptr<FTLinkInfo> link,
                                                    std::int32_t delay_sec, const FTTime& now) {
  const std::string link_id = link->link_id;
  const CFTScopedLock guard(&m_lock);
  if (m_entries.count(link_id) != 0) return link;
  m_entries.emplace(link_id, Entry{std::move(link), now, delay_sec});
  return nullptr;
}

std::unique_ptr<FTLinkInfo> CFTConnectSchedule::Take(const std::string& link_id) {
  const CFTScopedLock guard(&m_lock);
  const auto found = m_entries.find(link_id);
  if (found == m_entries.end()) return nullptr;
  auto link = std::move(found->second.link);
  m_entries.erase(found);
  return link;
}

void CFTConnectSchedule::StartDue(const FTTime& now, const Start& start) {
  const CFTScopedLock guard(&m_lock);
  for (auto entry = m_entries.begin(); entry != m_entries.end();) {
    if (!IsOver(now, entry->second.stamp, entry->second.delay_sec)) {
      ++entry;
      continue;
    }
    start(std::move(entry->second.link));
    entry = m_entries.erase(entry);
  }
}
