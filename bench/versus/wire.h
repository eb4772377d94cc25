// Packages as every contender but ZeroMQ sends and receives them: see docs/wire-format.md.
#pragma once

#include <cstdint>
#include <string>

namespace versus {

constexpr std::uint32_t kHeadBytes = 12;

// The checksum's 32 bits.
using CheckSum = std::uint32_t (*)(const char* body, std::uint32_t length);

// The loop that anybody would write.
std::uint32_t PlainCheckSum(const char* body, std::uint32_t length);

// The one that ftclient uses itself.
std::uint32_t FastCheckSum(const char* body, std::uint32_t length);

std::uint32_t LoadBigEndian(const char* bytes);
void StoreBigEndian(std::uint32_t value, char* bytes);

struct Head {
  std::uint32_t body_length;
  std::uint32_t check_sum;
};

void EncodeHead(const Head& head, char bytes[kHeadBytes]);
Head DecodeHead(const char bytes[kHeadBytes]);

void AppendPackage(std::string* out, const char* body, std::uint32_t length, CheckSum check_sum);

}  // namespace versus
