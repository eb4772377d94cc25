#include "platform/adaptive_yield.h"

#include <algorithm>
#include <chrono>

#include "platform/platform.h"

namespace platform {

bool AdaptiveYield::Try() {
  if (m_skip > 0) {
    --m_skip;
    return false;
  }
  const auto begin = std::chrono::steady_clock::now();
  YieldThread();
  if (std::chrono::steady_clock::now() - begin > std::chrono::microseconds(200)) {
    m_skip = m_next_skip;
    m_next_skip = std::min(2 * m_next_skip, kMostSkipped);
  } else {
    m_next_skip = std::max(m_next_skip / 2, kFewestSkipped);
  }
  return true;
}

}  // namespace platform
