#include "tests/support/wire.h"

#include <stdexcept>

namespace testkit {

namespace {

constexpr std::int64_t kTwoTo32 = std::int64_t{1} << 32;

std::uint32_t ByteAt(const Bytes& bytes, std::size_t offset) {
  return offset < bytes.size() ? static_cast<unsigned char>(bytes[offset]) : 0U;
}

std::uint32_t BigEndianAt(const Bytes& bytes, std::size_t offset) {
  return ByteAt(bytes, offset) << 24 | ByteAt(bytes, offset + 1) << 16 |
         ByteAt(bytes, offset + 2) << 8 | ByteAt(bytes, offset + 3);
}

Bytes BigEndian(std::uint32_t value) {
  Bytes bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFFU);
  return bytes;
}

Bytes LittleEndian(std::uint32_t value) {
  const Bytes bytes = BigEndian(value);
  return Bytes(bytes.rbegin(), bytes.rend());
}

std::int64_t Signed(std::uint32_t word) {
  return word < 0x80000000U ? std::int64_t{word} : std::int64_t{word} - kTwoTo32;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  throw std::invalid_argument(std::string("not a hexadecimal digit: ") + c);
}

}  // namespace

Bytes CheckSum(const Bytes& body) {
  std::int64_t sum = 0;
  // Bytes behind the end count as zero.
  for (std::size_t offset = 0; offset < body.size(); offset += 4) {
    sum += Signed(BigEndianAt(body, offset));
    while (sum >= kTwoTo32) sum = sum % kTwoTo32 + sum / kTwoTo32;
  }
  const std::int64_t low = (sum % kTwoTo32 + kTwoTo32) % kTwoTo32;
  return BigEndian(~static_cast<std::uint32_t>(low));
}

Bytes BuildHeader(std::uint32_t body_length, const Bytes& check_sum, std::uint32_t mark) {
  if (check_sum.size() != 4) throw std::invalid_argument("a check sum has four bytes");
  return LittleEndian(mark) + BigEndian(body_length) + check_sum;
}

Bytes BuildPackage(const Bytes& body) {
  return BuildHeader(static_cast<std::uint32_t>(body.size()), CheckSum(body)) + body;
}

Bytes HeartbeatPackage() {
  return FromHex("01 00 00 00  00 00 00 03  B7 BD FF FF  48 42 00");
}

bool IsHeartbeat(const Bytes& body) {
  return body.size() >= 3 && body.compare(0, 3, "HB\0", 3) == 0;
}

std::optional<ParsedPackage> ParsePackage(const Bytes& stream) {
  if (stream.size() < kHeaderSize) return std::nullopt;
  const std::size_t size = kHeaderSize + BigEndianAt(stream, 4);
  if (stream.size() < size) return std::nullopt;
  ParsedPackage package;
  package.mark = BigEndianAt(Bytes(stream.rend() - 4, stream.rend()), 0);
  package.body = stream.substr(kHeaderSize, size - kHeaderSize);
  package.check_sum_matches = stream.compare(8, 4, CheckSum(package.body)) == 0;
  package.size = size;
  return package;
}

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  int high = -1;
  for (const char c : text) {
    if (c == ' ' || c == '\n') continue;
    const int digit = HexDigit(c);
    if (high >= 0) bytes += static_cast<char>(high * 16 + digit);
    high = high >= 0 ? -1 : digit;
  }
  if (high >= 0) throw std::invalid_argument("half a byte at the end of: " + text);
  return bytes;
}

std::string HexDump(const Bytes& bytes, std::size_t limit) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < bytes.size() && i < limit; ++i) {
    if (i > 0) text += ' ';
    text += kDigits[ByteAt(bytes, i) >> 4];
    text += kDigits[ByteAt(bytes, i) & 0xFU];
  }
  if (bytes.size() > limit) text += " ... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

Bytes PatternBody(std::size_t size, std::uint32_t seed) {
  Bytes body(size, '\0');
  std::uint32_t state = seed * 2654435761U + 1U;
  for (char& byte : body) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return body;
}

}  // namespace testkit
