#include <cctype>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace platform {

namespace {

constexpr int kMostParts = 4;

// In the first of fewer than four parts the last one covers the bytes that are left.
bool Join(const unsigned long* parts, int count, std::uint32_t* value) {
  std::uint32_t joined = 0;
  for (int i = 0; i < count - 1; ++i) {
    if (parts[i] > 0xFF) return false;
    joined |= static_cast<std::uint32_t>(parts[i]) << (24 - 8 * i);
  }
  const std::uint32_t most = 0xFFFFFFFFU >> (8 * (count - 1));
  if (parts[count - 1] > most) return false;
  *value = joined | static_cast<std::uint32_t>(parts[count - 1]);
  return true;
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

std::uint32_t ToNetwork(std::uint32_t value) {
  const unsigned char bytes[4] = {
      static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
      static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
  std::uint32_t network;
  std::memcpy(&network, bytes, sizeof network);
  return network;
}

}  // namespace

std::uint32_t ParseAddress(const char* text) {
  unsigned long parts[kMostParts];
  int count = 0;
  for (;;) {
    if (count == kMostParts || !IsDigit(*text)) return kNoAddress;
    char* end = nullptr;
    parts[count++] = std::strtoul(text, &end, 0);
    text = end;
    if (*text != '.') break;
    ++text;
  }
  std::uint32_t value = 0;
  const bool ends = *text == '\0' || std::isspace(static_cast<unsigned char>(*text)) != 0;
  return ends && Join(parts, count, &value) ? ToNetwork(value) : kNoAddress;
}

std::uint16_t PortToNetwork(std::uint16_t port) {
  const unsigned char bytes[2] = {static_cast<unsigned char>(port >> 8),
                                  static_cast<unsigned char>(port)};
  std::uint16_t network;
  std::memcpy(&network, bytes, sizeof network);
  return network;
}

std::uint16_t PortToHost(std::uint16_t port) {
  return PortToNetwork(port);
}

}  // namespace platform
