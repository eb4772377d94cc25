#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Counts times of up to 18 minutes in 35 KB, however many there are.
class LatencyHistogram {
 public:
  LatencyHistogram();

  void Count(std::int64_t nanoseconds);

  std::int64_t GetCount() const { return m_count; }
  std::int64_t GetMin() const { return m_min; }  // ns; 0 when nothing was counted
  std::int64_t GetMax() const { return m_max; }

  // ns: that share of the times, from 0 to 1, took no longer. Right to 0.4 %.
  std::int64_t GetQuantile(double share) const;

 private:
  static std::size_t IndexOf(std::int64_t nanoseconds);
  static std::int64_t MiddleOf(std::size_t index);

  std::vector<std::int64_t> m_counts;
  std::int64_t m_count = 0;
  std::int64_t m_min = 0;
  std::int64_t m_max = 0;
};
