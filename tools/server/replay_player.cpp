#include "tools/server/replay_player.h"

#include <algorithm>
#include <utility>

#include "tools/common/body_text.h"
#include "tools/common/count_text.h"

namespace {

std::string ShowOf(std::size_t count, std::size_t all, const char* what) {
  return std::to_string(count) + " of " + ShowCount(static_cast<std::int64_t>(all), what);
}

}  // namespace

ReplayPlayer::ReplayPlayer(std::shared_ptr<const Replay> replay, double speed, bool ends_server,
                           const FTTime& start)
    : m_replay(std::move(replay)), m_speed(speed), m_ends_server(ends_server), m_start(start) {}

std::string ReplayPlayer::OnRequest(const std::string& body, const FTTime& now) {
  const std::size_t index = m_request_times_ms.size();
  m_request_times_ms.push_back(ft::ElapsedMs(now, m_start));
  const bool was_recorded = index < m_replay->requests.size();
  if (was_recorded && m_replay->requests[index] == body) return {};
  ++m_different;
  const std::string number = "request " + std::to_string(index + 1);
  if (!was_recorded) return number + " has none beside it in the recording";
  const std::string& recorded = m_replay->requests[index];
  return number + " differs, recorded was " + ShowBodyShort(recorded.data(), recorded.size());
}

const ServerAct* ReplayPlayer::FindDue(const FTTime& now) {
  if (m_next_step >= m_replay->steps.size()) return nullptr;
  const Replay::Step& step = m_replay->steps[m_next_step];
  if (m_request_times_ms.size() < step.requests || GetDueMs(step) > ft::ElapsedMs(now, m_start))
    return nullptr;
  return &step.act;
}

std::int64_t ReplayPlayer::GetDueMs(const Replay::Step& step) const {
  const std::int64_t asked_ms = step.requests == 0 ? 0 : m_request_times_ms[step.requests - 1];
  const double delay_ms = static_cast<double>(step.delay_us) / 1000 / m_speed;
  return std::max(asked_ms, m_last_step_ms) + static_cast<std::int64_t>(delay_ms);
}

// The time that was planned counts, so that delays do not add up.
void ReplayPlayer::DropDue() {
  m_last_step_ms = GetDueMs(m_replay->steps[m_next_step]);
  ++m_next_step;
}

bool ReplayPlayer::IsComplete() const {
  return m_next_step == m_replay->steps.size() && m_different == 0 &&
         m_request_times_ms.size() == m_replay->requests.size();
}

std::string ReplayPlayer::ShowProgress() const {
  const std::string differ =
      m_different == 0 ? "" : ", " + std::to_string(m_different) + " different";
  return ShowOf(m_request_times_ms.size(), m_replay->requests.size(), "recorded request") + differ +
         ", " + ShowOf(m_next_step, m_replay->steps.size(), "step") + " played";
}
