// The wire format, from this kit's own code: a fault in the library's codec cannot hide here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace testkit {

// Bytes on the wire or in a body; zero bytes included.
using Bytes = std::string;

constexpr std::size_t kHeaderSize = 12;

// The four bytes that stand in the header of a package with this body.
Bytes CheckSum(const Bytes& body);

// Twelve header bytes with any content, for packages that lie. check_sum holds four bytes.
Bytes BuildHeader(std::uint32_t body_length, const Bytes& check_sum, std::uint32_t mark = 1);

Bytes BuildPackage(const Bytes& body);
Bytes HeartbeatPackage();
bool IsHeartbeat(const Bytes& body);

struct ParsedPackage {
  std::uint32_t mark = 0;
  Bytes body;
  bool check_sum_matches = false;
  std::size_t size = 0;  // of the whole package, header included
};

// The package at the start of the stream; nothing while it is incomplete.
std::optional<ParsedPackage> ParsePackage(const Bytes& stream);
// Cuts it off and returns its body; throws std::runtime_error when mark or check sum are wrong.
std::optional<Bytes> TakeBody(Bytes* stream);

// "48 42 00" and back. FromHex throws std::invalid_argument on anything else.
Bytes FromHex(const std::string& text);
std::string HexDump(const Bytes& bytes, std::size_t limit = 64);

// A body of this size that repeats at no short distance; the same seed gives the same bytes.
Bytes PatternBody(std::size_t size, std::uint32_t seed = 1);

}  // namespace testkit
