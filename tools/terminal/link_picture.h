// How a link looks on a screen. Functions without state.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/clock.h"
#include "tools/host/link_statistics.h"
#include "tools/terminal/screen.h"

struct LinkPicture {
  const LinkStatistics* statistics = nullptr;
  FTTime tick_now;
  FTTime wall_now;
  std::string server;
  const std::deque<std::string>* log = nullptr;  // the newest line is the last one
  std::size_t scrolled = 0;                      // how many newer log lines are out of sight
  std::optional<std::string> input;              // the line that is being typed
  bool unicode = true;                           // or graphs are of ASCII characters
};

// As many lines as the height has, the last one with the input, if there is any; the log fills what
// the figures leave.
std::vector<ScreenLine> DrawLink(const LinkPicture& picture, const ScreenSize& size);

// The totals of both directions, one line each.
std::vector<std::string> ShowTotals(const LinkStatistics& statistics);
