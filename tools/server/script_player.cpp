#include "tools/server/script_player.h"

#include <utility>

#include "tools/common/count_text.h"

namespace {

ServerAct MakeAct(const ScriptAct& act, const std::string& request) {
  switch (act.kind) {
    case ScriptAct::Kind::kSendText:
      return {MakeWirePackage(act.text, act.checksum)};
    case ScriptAct::Kind::kSendRequest:
      return {MakeWirePackage(request, act.checksum)};
    case ScriptAct::Kind::kClose:
      return {{}, true};
    default:
      return {};
  }
}

}  // namespace

ScriptPlayer::ScriptPlayer(std::shared_ptr<const Script> script, const FTTime& start)
    : m_script(std::move(script)), m_start(start) {
  for (const ScriptRule& rule : m_script->rules) {
    if (rule.trigger == ScriptRule::Trigger::kTime) Plan(rule, rule.time_ms, {});
    if (rule.trigger == ScriptRule::Trigger::kInterval) m_next_rounds.emplace(rule.time_ms, &rule);
  }
}

std::string ScriptPlayer::OnRequest(const std::string& body, const FTTime& now) {
  ++m_requests;
  for (const ScriptRule& rule : m_script->rules) {
    if (!rule.Takes(body)) continue;
    Plan(rule, ft::ElapsedMs(now, m_start), body);
    return {};
  }
  ++m_without_rule;
  return "no rule for this request";
}

void ScriptPlayer::Plan(const ScriptRule& rule, std::int64_t time_ms, const std::string& request) {
  for (const ScriptAct& act : rule.acts) {
    time_ms += act.delay_ms;
    if (act.kind != ScriptAct::Kind::kIgnore) m_planned.emplace(time_ms, MakeAct(act, request));
  }
}

const ServerAct* ScriptPlayer::FindDue(const FTTime& now) {
  const std::int64_t now_ms = ft::ElapsedMs(now, m_start);
  RepeatIntervals(now_ms);
  if (m_closed || m_planned.empty() || m_planned.begin()->first > now_ms) return nullptr;
  return &m_planned.begin()->second;
}

// What is due goes out first: rounds must not pile up on a link that nobody reads.
void ScriptPlayer::RepeatIntervals(std::int64_t now_ms) {
  const auto is_due = [now_ms](const auto& entries) {
    return !entries.empty() && entries.begin()->first <= now_ms;
  };
  while (is_due(m_next_rounds) && !is_due(m_planned)) {
    const auto [time_ms, rule] = *m_next_rounds.begin();
    m_next_rounds.erase(m_next_rounds.begin());
    Plan(*rule, time_ms, {});
    m_next_rounds.emplace(time_ms + rule->time_ms, rule);
  }
}

void ScriptPlayer::DropDue() {
  m_closed = m_closed || m_planned.begin()->second.closes;
  m_planned.erase(m_planned.begin());
}

std::string ScriptPlayer::ShowProgress() const {
  const std::string requests = ShowCount(m_requests, "request");
  return m_without_rule == 0 ? requests
                             : requests + ", " + std::to_string(m_without_rule) + " without a rule";
}
