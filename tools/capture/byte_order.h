// Numbers in bytes. Functions without state; nobody looks whether the bytes are there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace capture {

enum class ByteOrder { kLittle, kBig };

inline std::uint32_t Load(const std::string& bytes, std::size_t at, std::size_t count,
                          ByteOrder order) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t from_top = order == ByteOrder::kBig ? i : count - 1 - i;
    value = value << 8 | static_cast<unsigned char>(bytes[at + from_top]);
  }
  return value;
}

inline void Append(std::string* bytes, std::uint32_t value, std::size_t count, ByteOrder order) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t from_bottom = order == ByteOrder::kLittle ? i : count - 1 - i;
    bytes->push_back(static_cast<char>(value >> (8 * from_bottom)));
  }
}

}  // namespace capture
