#include "tools/server/push_schedule.h"

PushSchedule::PushSchedule(const PushPlan& plan, const FTTime& start)
    : m_plan(plan), m_last(start) {}

void PushSchedule::Advance(const FTTime& now) {
  m_due_thousandths += std::int64_t{ft::DiffMs(now, m_last)} * m_plan.rate;
  m_last = now;
}

bool PushSchedule::IsDue() const {
  return m_plan.rate > 0 && !IsComplete() && (m_pushed + 1) * 1000 <= m_due_thousandths;
}

std::string PushSchedule::MakeBody() const {
  std::string body = "push " + std::to_string(m_pushed + 1) + " ";
  body.resize(static_cast<std::size_t>(m_plan.size), '.');
  return body;
}
