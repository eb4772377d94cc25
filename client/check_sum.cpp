#include "client/check_sum.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "client/check_sum_run.h"

namespace {

constexpr std::int64_t kTop = 0xFFFFFFFF;
using ft::WordRun;

// The sum is folded, by taking kTop away, whenever a word lifts it above kTop. A word is below
// kTop, so one fold is enough each time. After any word, then, as many folds have been made as are
// needed to keep the highest sum so far at kTop or below: nothing ever takes one back. At the end
// that is the least k with sum + top - k * kTop <= kTop.
std::int64_t Apply(const WordRun& run, std::int64_t sum) {
  const std::int64_t highest = sum + run.top;
  const std::int64_t folds = highest > kTop ? (highest - 1) / kTop : 0;
  return sum + run.total - folds * kTop;
}

WordRun ReadWithBestReader(const unsigned char* bytes) {
  static const ft::BlockReader vector_reader = ft::VectorBlockReader();
  return vector_reader != nullptr ? vector_reader(bytes) : ft::ReadBlock(bytes);
}

}  // namespace

void ft::CalcCheckSum(unsigned char check_sum[4], const void* data, std::int32_t count) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  auto left = static_cast<std::size_t>(std::max(count, 0));
  std::int64_t sum = 0;
  for (; left >= WordRun::kBlockBytes; left -= WordRun::kBlockBytes, bytes += WordRun::kBlockBytes)
    sum = Apply(ReadWithBestReader(bytes), sum);
  const std::size_t whole = left / WordRun::kWordBytes * WordRun::kWordBytes;
  sum = Apply(ft::ReadWords(bytes, whole), sum);
  if (left > whole) {
    unsigned char last[WordRun::kWordBytes] = {};
    std::memcpy(last, bytes + whole, left - whole);
    sum = Apply(ft::ReadWords(last, WordRun::kWordBytes), sum);
  }
  const auto result = ~static_cast<std::uint32_t>(sum);
  check_sum[0] = static_cast<unsigned char>(result >> 24);
  check_sum[1] = static_cast<unsigned char>(result >> 16);
  check_sum[2] = static_cast<unsigned char>(result >> 8);
  check_sum[3] = static_cast<unsigned char>(result);
}
