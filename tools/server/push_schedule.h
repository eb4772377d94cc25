#pragma once

#include <cstdint>
#include <string>

#include "00shcode/mytoolkit/clock.h"

// What a server sends without being asked.
struct PushPlan {
  std::int32_t rate = 0;   // packages per second and link; 0: none
  std::int32_t size = 64;  // bytes of a body
  std::int32_t count = 0;  // packages per link in all; 0: no end
};

// How far one link is with the plan. Plain data: the time comes from outside.
class PushSchedule {
 public:
  PushSchedule(const PushPlan& plan, const FTTime& start);

  // Lets time pass; readings of the tick clock.
  void Advance(const FTTime& now);

  // True when a package is to go out by now. The first is due at the start.
  bool IsDue() const;

  // The next package's body: its number, filled up to the planned size.
  std::string MakeBody() const;

  void CountPushed() { ++m_pushed; }
  std::int64_t GetPushed() const { return m_pushed; }
  bool IsComplete() const { return m_plan.count > 0 && m_pushed >= m_plan.count; }

 private:
  const PushPlan m_plan;
  FTTime m_last;
  std::int64_t m_due_thousandths = 1000;  // packages that should have gone out since the start
  std::int64_t m_pushed = 0;
};
