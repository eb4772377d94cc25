#pragma once

#include <cstdint>
#include <string>

#include "tools/server/behaviour.h"

// What a server sends without being asked.
struct PushPlan {
  std::int32_t rate = 0;   // packages per second and link
  std::int32_t size = 64;  // bytes of a body
  std::int32_t count = 0;  // packages per link in all; 0: no end
};

// Sends packages at a steady rate; after the last one it closes the link.
class PushSchedule final : public Behaviour {
 public:
  PushSchedule(const PushPlan& plan, const FTTime& start);

  std::string OnRequest(const std::string&, const FTTime&) override { return {}; }
  const ServerAct* FindDue(const FTTime& now) override;  // the first is due at the start
  void DropDue() override;
  std::string ShowProgress() const override;
  bool IsComplete() const override { return m_plan.count > 0 && m_pushed >= m_plan.count; }
  bool EndsServer() const override { return IsComplete(); }

 private:
  void MakeNext();

  const PushPlan m_plan;
  FTTime m_last;
  std::int64_t m_due_thousandths = 1000;  // packages that should have gone out since the start
  std::int64_t m_pushed = 0;
  ServerAct m_next;
};
