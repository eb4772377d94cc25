#include "client/check_sum.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr std::int64_t kTop = 0xFFFFFFFF;
constexpr std::size_t kWordBytes = 4;
constexpr std::size_t kRunBytes = 4096;  // cut into four parts, which are read side by side

std::int32_t WordAt(const unsigned char* bytes) {
  return static_cast<std::int32_t>(std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                                   std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]});
}

// What a run of words does to the sum.
struct Run {
  std::int64_t total = 0;
  std::int64_t top = 0;  // the highest total on the way, or 0

  void Add(std::int32_t word) {
    total += word;
    top = std::max(top, total);
  }
};

Run Join(const Run& first, const Run& second) {
  return {first.total + second.total, std::max(first.top, first.total + second.top)};
}

// The sum is folded, by taking kTop away, whenever a word lifts it above kTop. A word is below
// kTop, so one fold is enough each time. After any word, then, as many folds have been made as are
// needed to keep the highest sum so far at kTop or below: nothing ever takes one back. At the end
// that is the least k with sum + top - k * kTop <= kTop.
std::int64_t Apply(const Run& run, std::int64_t sum) {
  const std::int64_t highest = sum + run.top;
  const std::int64_t folds = highest > kTop ? (highest - 1) / kTop : 0;
  return sum + run.total - folds * kTop;
}

Run ReadWords(const unsigned char* bytes, std::size_t count) {
  Run run;
  for (std::size_t i = 0; i < count; i += kWordBytes) run.Add(WordAt(bytes + i));
  return run;
}

// Four parts at once, since each addition waits for the one before it.
Run ReadRun(const unsigned char* bytes) {
  constexpr std::size_t kPart = kRunBytes / 4;
  Run parts[4];
  for (std::size_t i = 0; i < kPart; i += kWordBytes) {
    parts[0].Add(WordAt(bytes + i));
    parts[1].Add(WordAt(bytes + i + kPart));
    parts[2].Add(WordAt(bytes + i + 2 * kPart));
    parts[3].Add(WordAt(bytes + i + 3 * kPart));
  }
  return Join(Join(parts[0], parts[1]), Join(parts[2], parts[3]));
}

}  // namespace

void ft::CalcCheckSum(unsigned char check_sum[4], const void* data, std::int32_t count) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  auto left = static_cast<std::size_t>(std::max(count, 0));
  std::int64_t sum = 0;
  for (; left >= kRunBytes; left -= kRunBytes, bytes += kRunBytes) sum = Apply(ReadRun(bytes), sum);
  const std::size_t whole = left / kWordBytes * kWordBytes;
  sum = Apply(ReadWords(bytes, whole), sum);
  if (left > whole) {
    unsigned char last[kWordBytes] = {};
    std::memcpy(last, bytes + whole, left - whole);
    sum = Apply(ReadWords(last, kWordBytes), sum);
  }
  const auto result = ~static_cast<std::uint32_t>(sum);
  check_sum[0] = static_cast<unsigned char>(result >> 24);
  check_sum[1] = static_cast<unsigned char>(result >> 16);
  check_sum[2] = static_cast<unsigned char>(result >> 8);
  check_sum[3] = static_cast<unsigned char>(result);
}
