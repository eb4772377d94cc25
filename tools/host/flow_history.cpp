#include "tools/host/flow_history.h"

void FlowHistory::Count(std::int64_t second, std::int64_t bytes) {
  Slot& slot = m_slots[IndexOf(second)];
  if (slot.second != second) slot = {second, {}};
  for (Flow* const flow : {&m_total, &slot.flow}) {
    ++flow->packages;
    flow->bytes += bytes;
  }
}

Flow FlowHistory::GetSecond(std::int64_t second) const {
  if (second < 0) return {};
  const Slot& slot = m_slots[IndexOf(second)];
  return slot.second == second ? slot.flow : Flow{};
}
