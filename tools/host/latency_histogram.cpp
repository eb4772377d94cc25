#include "tools/host/latency_histogram.h"

#include <algorithm>
#include <cmath>

namespace {

// Up to kSteps each number has a place of its own; from there on each doubling has kSteps places.
constexpr std::size_t kSteps = 128;
constexpr std::size_t kDoublings = 33;
constexpr std::int64_t kMost = (std::int64_t{kSteps} << kDoublings) - 1;

}  // namespace

LatencyHistogram::LatencyHistogram() : m_counts((kDoublings + 1) * kSteps) {}

void LatencyHistogram::Count(std::int64_t nanoseconds) {
  m_min = m_count == 0 ? nanoseconds : std::min(m_min, nanoseconds);
  m_max = std::max(m_max, nanoseconds);
  ++m_count;
  ++m_counts[IndexOf(nanoseconds)];
}

std::int64_t LatencyHistogram::GetQuantile(double share) const {
  const auto wanted = static_cast<std::int64_t>(std::ceil(share * static_cast<double>(m_count)));
  std::int64_t passed = 0;
  for (std::size_t index = 0; index < m_counts.size(); ++index) {
    passed += m_counts[index];
    if (passed >= std::max(wanted, std::int64_t{1})) {
      return std::clamp(MiddleOf(index), m_min, m_max);
    }
  }
  return m_max;
}

std::size_t LatencyHistogram::IndexOf(std::int64_t nanoseconds) {
  std::int64_t number = std::clamp(nanoseconds, std::int64_t{0}, kMost);
  std::size_t doublings = 0;
  for (; number >= std::int64_t{2 * kSteps}; number >>= 1) ++doublings;
  return doublings * kSteps + static_cast<std::size_t>(number);
}

std::int64_t LatencyHistogram::MiddleOf(std::size_t index) {
  if (index < 2 * kSteps) return static_cast<std::int64_t>(index);
  const std::size_t doublings = index / kSteps - 1;
  const auto number = static_cast<std::int64_t>(index - doublings * kSteps);
  return ((2 * number + 1) << doublings) / 2;
}
