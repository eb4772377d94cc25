#include "00shcode/ftmsgq/timer_list.h"

#include <utility>

namespace {

constexpr std::int32_t kScanGateMs = 10;

}  // namespace

void CFTTimerList::Add(FTMsg timer, const FTTime& now) {
  m_timers.push_back({std::move(timer), now});
}

void CFTTimerList::TakeDue(const FTTime& now, std::vector<FTMsg>* batch) {
  if (ft::ElapsedMs(now, m_last_scan) < kScanGateMs) return;
  m_last_scan = now;
  auto kept = m_timers.begin();
  for (Timer& timer : m_timers) {
    if (ft::ElapsedMs(now, timer.armed_at) >= timer.msg.param2) {
      batch->push_back(std::move(timer.msg));
    } else {
      if (&*kept != &timer) *kept = std::move(timer);
      ++kept;
    }
  }
  m_timers.erase(kept, m_timers.end());
}
