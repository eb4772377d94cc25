#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/server/replay.h"

// Plays a recorded server on one link: each package goes out when the requests that preceded it
// have come and as much time has passed as in the recording.
class ReplayPlayer final : public Behaviour {
 public:
  // speed: 2 halves all delays.
  ReplayPlayer(std::shared_ptr<const Replay> replay, double speed, bool ends_server,
               const FTTime& start);

  std::string OnRequest(const std::string& body, const FTTime& now) override;
  const ServerAct* FindDue(const FTTime& now) override;
  void DropDue() override;
  std::string ShowProgress() const override;
  bool IsComplete() const override;
  bool EndsServer() const override { return m_ends_server; }

 private:
  std::int64_t GetDueMs(const Replay::Step& step) const;

  const std::shared_ptr<const Replay> m_replay;
  const double m_speed;
  const bool m_ends_server;
  const FTTime m_start;
  std::vector<std::int64_t> m_request_times_ms;  // since the start
  std::int64_t m_last_step_ms = 0;
  std::size_t m_next_step = 0;
  std::size_t m_different = 0;
};
