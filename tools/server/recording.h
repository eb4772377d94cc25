#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tools/server/replay_player.h"

struct ReplayPlan {
  double speed = 1;   // 2 halves all delays
  bool once = false;  // the server ends with the last recorded link
};

// A recorded server, link by link. One thread at a time.
class Recording {
 public:
  // Reads a capture file; throws std::runtime_error when it holds no link's beginning.
  Recording(const std::string& path, const ReplayPlan& plan);

  bool HasHeartbeats() const;

  // The next recorded link; behind the last the first follows.
  std::unique_ptr<Behaviour> PlayNext(const FTTime& start);

 private:
  const ReplayPlan m_plan;
  std::vector<std::shared_ptr<const Replay>> m_links;
  std::size_t m_next = 0;
};
