#include "00shcode/ftmsgq/timer_list.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::int32_t kScanGateMs = 10;

}  // namespace

void CFTTimerList::Add(FTMsg timer, const FTTime& now) {
  m_timers.push_back({std::move(timer), now});
}

void CFTTimerList::TakeDue(const FTTime& now, CFTMsgFifo* batch) {
  if (ft::ElapsedMs(now, m_last_scan) < kScanGateMs) return;
  m_last_scan = now;
  auto kept = m_timers.begin();
  for (Timer& timer : m_timers) {
    if (ft::ElapsedMs(now, timer.armed_at) >= timer.msg.param2) {
      batch->Push(std::move(timer.msg));
    } else {
      if (&*kept != &timer) *kept = std::move(timer);
      ++kept;
    }
  }
  m_timers.erase(kept, m_timers.end());
}

std::int32_t CFTTimerList::MsUntilDue(const FTTime& now, std::int32_t most_ms) const {
  std::int64_t least_ms = most_ms;
  for (const Timer& timer : m_timers) {
    least_ms = std::min(least_ms, timer.msg.param2 - ft::ElapsedMs(now, timer.armed_at));
  }
  const std::int64_t gate_ms = kScanGateMs - ft::ElapsedMs(now, m_last_scan);
  return static_cast<std::int32_t>(std::max({least_ms, gate_ms, std::int64_t{1}}));
}
