#include "tools/server/push_schedule.h"

#include "tools/common/count_text.h"
#include "tools/server/wire_package.h"

PushSchedule::PushSchedule(const PushPlan& plan, const FTTime& start)
    : m_plan(plan), m_last(start) {
  MakeNext();
}

const ServerAct* PushSchedule::FindDue(const FTTime& now) {
  m_due_thousandths += std::int64_t{ft::DiffMs(now, m_last)} * m_plan.rate;
  m_last = now;
  if (IsComplete() || (m_pushed + 1) * 1000 > m_due_thousandths) return nullptr;
  return &m_next;
}

void PushSchedule::DropDue() {
  ++m_pushed;
  MakeNext();
}

// Its body is its number, filled up to the planned size.
void PushSchedule::MakeNext() {
  std::string body = "push " + std::to_string(m_pushed + 1) + " ";
  body.resize(static_cast<std::size_t>(m_plan.size), '.');
  m_next.wire = MakeWirePackage(body);
  m_next.closes = m_pushed + 1 == m_plan.count;
}

std::string PushSchedule::ShowProgress() const {
  return ShowCount(m_pushed, "package") + " pushed";
}
