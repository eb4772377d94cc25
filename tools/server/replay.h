#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/capture/recorded_link.h"
#include "tools/server/behaviour.h"

// What a recorded server did on one link, and upon how many requests.
struct Replay {
  struct Step {
    std::size_t requests = 0;   // that had come before
    std::int64_t delay_us = 0;  // since the step before or the last of these requests
    ServerAct act;
  };

  explicit Replay(const capture::RecordedLink& link);

  std::vector<std::string> requests;  // bodies
  std::vector<Step> steps;            // without heartbeats
  bool heartbeats = false;            // the server sent them, or was never silent long enough
};
