#include "client/check_sum.h"

#include <cstring>

namespace {

constexpr std::int64_t kTop = 0xFFFFFFFF;
constexpr std::int32_t kWordBytes = 4;
constexpr std::int32_t kBlockWords = 64;
constexpr std::int32_t kBlockBytes = kBlockWords * kWordBytes;

std::int32_t WordAt(const unsigned char* bytes) {
  return static_cast<std::int32_t>(std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                                   std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]});
}

// Before the addition the sum is at most kTop, so one fold is enough, and folding a sum between
// 2^32 and 2^33 - 1 is the same as taking kTop away.
std::int64_t AddWord(std::int64_t sum, std::int32_t word) {
  sum += word;
  return sum > kTop ? sum - kTop : sum;
}

std::int64_t AddWordByWord(std::int64_t sum, const unsigned char* block) {
  for (std::int32_t i = 0; i < kBlockBytes; i += kWordBytes) sum = AddWord(sum, WordAt(block + i));
  return sum;
}

// Where folding happens depends on the order of the words, except in two cases:
// - Without negative words the sum only rises. Once folded it stays between 1 and kTop, and each
//   fold takes kTop away, so the result is the one number in that range that differs from the
//   plain total by a multiple of kTop.
// - If even the positive words alone cannot lift the sum above kTop, nothing is ever folded.
std::int64_t AddBlock(std::int64_t sum, const unsigned char* block) {
  std::int64_t total = 0;
  std::int64_t positive = 0;
  for (std::int32_t i = 0; i < kBlockBytes; i += kWordBytes) {
    const std::int32_t word = WordAt(block + i);
    total += word;
    positive += word > 0 ? word : 0;
  }
  if (sum + positive <= kTop) return sum + total;
  if (positive == total) return (sum + total - 1) % kTop + 1;
  return AddWordByWord(sum, block);
}

}  // namespace

void ft::CalcCheckSum(unsigned char check_sum[4], const void* data, std::int32_t count) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::int64_t sum = 0;
  for (; count >= kBlockBytes; count -= kBlockBytes, bytes += kBlockBytes) {
    sum = AddBlock(sum, bytes);
  }
  for (; count >= kWordBytes; count -= kWordBytes, bytes += kWordBytes) {
    sum = AddWord(sum, WordAt(bytes));
  }
  if (count > 0) {
    unsigned char last[kWordBytes] = {};
    std::memcpy(last, bytes, static_cast<std::size_t>(count));
    sum = AddWord(sum, WordAt(last));
  }
  const auto result = ~static_cast<std::uint32_t>(sum);
  check_sum[0] = static_cast<unsigned char>(result >> 24);
  check_sum[1] = static_cast<unsigned char>(result >> 16);
  check_sum[2] = static_cast<unsigned char>(result >> 8);
  check_sum[3] = static_cast<unsigned char>(result);
}
