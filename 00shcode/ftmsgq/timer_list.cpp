#include "00shcode/ftmsgq/timer_list.h"

#include <algorithm>

namespace {

constexpr std::int32_t kScanGateMs = 10;

}  // namespace

void CFTTimerList::Add(const FTMsg& timer, const FTTime& now) {
  m_timers.push_back({timer, now});
}

void CFTTimerList::TakeDue(const FTTime& now, std::vector<FTMsg>* batch) {
  if (DiffMs(now, m_last_scan) < kScanGateMs) return;
  m_last_scan = now;
  const auto is_due = [&now](const Timer& timer) {
    return DiffMs(now, timer.armed_at) >= timer.msg.param2;
  };
  for (const Timer& timer : m_timers) {
    if (is_due(timer)) batch->push_back(timer.msg);
  }
  m_timers.erase(std::remove_if(m_timers.begin(), m_timers.end(), is_due), m_timers.end());
}
