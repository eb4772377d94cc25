#include "bench/versus/wire.h"

#include <cstring>

#include "client/check_sum.h"

namespace versus {

std::uint32_t LoadBigEndian(const char* bytes) {
  const auto* const b = reinterpret_cast<const unsigned char*>(bytes);
  return std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 |
         std::uint32_t{b[3]};
}

void StoreBigEndian(std::uint32_t value, char* bytes) {
  for (int shift = 24; shift >= 0; shift -= 8) *bytes++ = static_cast<char>(value >> shift);
}

std::uint32_t PlainCheckSum(const char* body, std::uint32_t length) {
  constexpr std::int64_t kTop = 0xFFFFFFFF;
  std::int64_t sum = 0;
  const auto add = [&sum](std::uint32_t word) {
    sum += static_cast<std::int32_t>(word);
    if (sum > kTop) sum -= kTop;
  };
  for (; length >= 4; length -= 4, body += 4) add(LoadBigEndian(body));
  if (length > 0) {
    char last[4] = {};
    std::memcpy(last, body, length);
    add(LoadBigEndian(last));
  }
  return ~static_cast<std::uint32_t>(sum);
}

std::uint32_t FastCheckSum(const char* body, std::uint32_t length) {
  unsigned char bytes[4];
  ft::CalcCheckSum(bytes, body, static_cast<std::int32_t>(length));
  return LoadBigEndian(reinterpret_cast<const char*>(bytes));
}

void EncodeHead(const Head& head, char bytes[kHeadBytes]) {
  std::memcpy(bytes, "\1\0\0\0", 4);
  StoreBigEndian(head.body_length, bytes + 4);
  StoreBigEndian(head.check_sum, bytes + 8);
}

Head DecodeHead(const char bytes[kHeadBytes]) {
  return {LoadBigEndian(bytes + 4), LoadBigEndian(bytes + 8)};
}

void AppendPackage(std::string* out, const char* body, std::uint32_t length, CheckSum check_sum) {
  char head[kHeadBytes];
  EncodeHead({length, check_sum(body, length)}, head);
  out->append(head, kHeadBytes);
  out->append(body, length);
}

}  // namespace versus
