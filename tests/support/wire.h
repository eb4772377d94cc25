// The wire format, from this kit's own code: a fault in the library's codec cannot hide here.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <stdexcept>

namespace testkit {

// Bytes on the wire or in a body; zero bytes included.
using Bytes = std::string;

constexpr std::size_t kHeaderSize = 12;

inline std::uint32_t BigEndianAt(const Bytes& bytes, std::size_t offset) {
  std::uint32_t word = 0;  // bytes behind the end count as zero
  for (std::size_t i = offset; i < offset + 4; ++i) {
    word = word << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
  }
  return word;
}

inline Bytes BigEndian(std::uint32_t value) {
  Bytes bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFFU);
  return bytes;
}

inline Bytes CheckSum(const Bytes& body) {
  constexpr std::int64_t kTwoTo32 = std::int64_t{1} << 32;
  std::int64_t sum = 0;
  for (std::size_t offset = 0; offset < body.size(); offset += 4) {
    sum += static_cast<std::int32_t>(BigEndianAt(body, offset));
    while (sum >= kTwoTo32) sum = sum % kTwoTo32 + sum / kTwoTo32;
  }
  return BigEndian(~static_cast<std::uint32_t>(sum));
}

// Twelve header bytes with any content, for packages that lie. check_sum holds four bytes.
inline Bytes BuildHeader(std::uint32_t body_length, const Bytes& check_sum,
                         std::uint32_t mark = 0x01000000) {
  return BigEndian(mark) + BigEndian(body_length) + check_sum;
}

inline Bytes BuildPackage(const Bytes& body) {
  return BuildHeader(static_cast<std::uint32_t>(body.size()), CheckSum(body)) + body;
}

const Bytes kHeartbeatBody("HB\0", 3);

const Bytes kHeartbeatPackage("\1\0\0\0\0\0\0\3\xB7\xBD\xFF\xFFHB\0", 15);

inline bool IsHeartbeat(const Bytes& body) {
  return body.compare(0, 3, kHeartbeatBody) == 0;
}

// Cuts a package off at the position; nothing while it is incomplete. Throws when it is malformed.
inline std::optional<Bytes> TakeBody(const Bytes& stream, std::size_t* position) {
  const std::size_t size = kHeaderSize + BigEndianAt(stream, *position + 4);
  if (stream.size() - *position < size) return std::nullopt;
  const Bytes package = stream.substr(*position, size);
  Bytes body = package.substr(kHeaderSize);
  if (package != BuildPackage(body)) throw std::runtime_error("malformed package");
  *position += size;
  return body;
}

// A body of this size that repeats at no short distance; the same seed gives the same bytes.
inline Bytes PatternBody(std::size_t size, std::uint32_t seed = 1) {
  Bytes body(size, '\0');
  std::minstd_rand random(seed + 1);
  for (char& byte : body) byte = static_cast<char>(random() >> 16);
  return body;
}

}  // namespace testkit
