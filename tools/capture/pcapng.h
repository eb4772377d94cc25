// The numbers of the pcapng format that the writer and the reader of capture files share.
#pragma once

#include <cstddef>
#include <cstdint>

namespace capture {

constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint32_t kByteOrderMark = 0x1A2B3C4D;

constexpr std::size_t kBlockHeadLen = 8;      // type and length
constexpr std::size_t kBlockFrameLen = 12;    // and the length once more at the end
constexpr std::size_t kPacketHeadLen = 20;    // of a packet block's body
constexpr std::size_t kInterfaceHeadLen = 8;  // of an interface block's body

// Bodies and options fill whole words.
constexpr std::size_t RoundUp(std::size_t length) {
  return (length + 3) / 4 * 4;
}

}  // namespace capture
