#include "tests/support/wire.h"

#include <iomanip>
#include <sstream>
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

std::optional<Bytes> TakeBody(Bytes* stream) {
  std::optional<ParsedPackage> package = ParsePackage(*stream);
  if (!package) return std::nullopt;
  if (package->mark != 1 || !package->check_sum_matches) {
    throw std::runtime_error("malformed package: " + HexDump(*stream));
  }
  stream->erase(0, package->size);
  return std::move(package->body);
}

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    std::size_t used = 0;
    bytes += static_cast<char>(std::stoi(word, &used, 16));
    if (word.size() != 2 || used != 2) throw std::invalid_argument("not one byte: " + word);
  }
  return bytes;
}

std::string HexDump(const Bytes& bytes, std::size_t limit) {
  std::ostringstream text;
  text << std::hex << std::uppercase << std::setfill('0');
  for (std::size_t i = 0; i < bytes.size() && i < limit; ++i) {
    text << (i == 0 ? "" : " ") << std::setw(2) << ByteAt(bytes, i);
  }
  if (bytes.size() > limit) text << " ... (" << std::dec << bytes.size() << " bytes)";
  return text.str();
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
