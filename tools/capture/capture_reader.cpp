#include "tools/capture/capture_reader.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tools/capture/byte_order.h"
#include "tools/capture/pcapng.h"

namespace capture {

namespace {

constexpr std::uint64_t kMicrosecond = 1000000;  // of them in a second

struct Interface {
  LinkType link_type;
  std::uint64_t units_per_second = kMicrosecond;
};

// Reads one file's blocks.
class BlockReader {
 public:
  explicit BlockReader(const std::string& bytes) : m_bytes(bytes) {}

  std::vector<Frame> ReadAll() {
    while (ReadBlock()) {
    }
    return std::move(m_frames);
  }

 private:
  std::uint32_t Word(std::size_t at) const { return Load(m_bytes, at, 4, m_order); }
  std::uint32_t Half(std::size_t at) const { return Load(m_bytes, at, 2, m_order); }

  // False at the end of the file, and of what is whole in it.
  bool ReadBlock() {
    if (m_bytes.size() - m_at < kBlockFrameLen) return false;
    if (Word(m_at) == kSectionBlock) BeginSection();
    const std::size_t length = Word(m_at + 4);
    if (length < kBlockFrameLen || length % 4 != 0 || length > m_bytes.size() - m_at) return false;
    const std::size_t body = m_at + kBlockHeadLen;
    const std::size_t end = m_at + length - 4;
    if (Word(m_at) == kInterfaceBlock) ReadInterface(body, end);
    if (Word(m_at) == kPacketBlock) ReadPacket(body, end);
    m_at += length;
    return true;
  }

  void BeginSection() {
    const bool is_little =
        Load(m_bytes, m_at + kBlockHeadLen, 4, ByteOrder::kLittle) == kByteOrderMark;
    m_order = is_little ? ByteOrder::kLittle : ByteOrder::kBig;
    m_interfaces.clear();
  }

  void ReadInterface(std::size_t at, std::size_t end) {
    if (end - at < kInterfaceHeadLen) return;
    Interface found{static_cast<LinkType>(Half(at))};
    at += kInterfaceHeadLen;
    while (end - at >= 4) {
      constexpr std::uint32_t kTimeResolution = 9;
      const std::size_t length = Half(at + 2);
      if (length > end - at - 4) break;
      if (Half(at) == kTimeResolution && length > 0) found.units_per_second = Resolution(at + 4);
      at += 4 + RoundUp(length);
      if (at > end) break;
    }
    m_interfaces.push_back(found);
  }

  // A negative power of 10, or of 2 when the top bit is set.
  std::uint64_t Resolution(std::size_t at) const {
    const std::uint32_t exponent = Load(m_bytes, at, 1, m_order);
    std::uint64_t units = 1;
    for (std::uint32_t i = 0; i < exponent % 0x80 && units < UINT64_MAX / 20; ++i) {
      units *= exponent >= 0x80 ? 2 : 10;
    }
    return units;
  }

  void ReadPacket(std::size_t at, std::size_t end) {
    if (end - at < kPacketHeadLen || Word(at) >= m_interfaces.size()) return;
    const Interface& interface = m_interfaces[Word(at)];
    const std::size_t length = Word(at + 12);
    if (length > end - at - kPacketHeadLen) return;
    const std::uint64_t units = std::uint64_t{Word(at + 4)} << 32 | Word(at + 8);
    const std::uint64_t seconds = units / interface.units_per_second;
    const std::uint64_t rest = units % interface.units_per_second;
    const double rest_us = static_cast<double>(rest) * static_cast<double>(kMicrosecond) /
                           static_cast<double>(interface.units_per_second);
    m_frames.push_back(
        {static_cast<std::int64_t>(seconds * kMicrosecond + static_cast<std::uint64_t>(rest_us)),
         interface.link_type, m_bytes.substr(at + kPacketHeadLen, length)});
  }

  const std::string& m_bytes;
  std::size_t m_at = 0;
  ByteOrder m_order = ByteOrder::kLittle;
  std::vector<Interface> m_interfaces;
  std::vector<Frame> m_frames;
};

}  // namespace

std::vector<Frame> ReadCapture(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read '" + path + "'");
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < kBlockFrameLen ||
      Load(bytes, 0, 4, ByteOrder::kLittle) != kSectionBlock) {  // the same in either order
    throw std::runtime_error(
        "'" + path +
        "' is not a capture file in the pcapng format; 'editcap -F pcapng' converts others");
  }
  return BlockReader(bytes).ReadAll();
}

}  // namespace capture
