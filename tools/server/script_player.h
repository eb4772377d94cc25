#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "tools/server/behaviour.h"
#include "tools/server/script.h"

// Follows a script on one link.
class ScriptPlayer final : public Behaviour {
 public:
  ScriptPlayer(std::shared_ptr<const Script> script, const FTTime& start);

  std::string OnRequest(const std::string& body, const FTTime& now) override;
  const ServerAct* FindDue(const FTTime& now) override;
  void DropDue() override;
  std::string ShowProgress() const override;
  bool IsComplete() const override { return true; }
  bool EndsServer() const override { return false; }

 private:
  void Plan(const ScriptRule& rule, std::int64_t time_ms, const std::string& request);
  void RepeatIntervals(std::int64_t now_ms);

  const std::shared_ptr<const Script> m_script;
  const FTTime m_start;
  std::multimap<std::int64_t, ServerAct> m_planned;              // by time since the start
  std::multimap<std::int64_t, const ScriptRule*> m_next_rounds;  // of rules with an interval
  bool m_closed = false;
  std::int64_t m_requests = 0;
  std::int64_t m_without_rule = 0;
};
