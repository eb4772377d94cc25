#include "tools/capture/tcp_segment.h"

#include "tools/capture/byte_order.h"

namespace capture {

namespace {

constexpr std::size_t kIpHeadLen = 20;
constexpr std::size_t kTcpHeadLen = 20;
constexpr std::uint32_t kTcpProtocol = 6;
constexpr std::uint32_t kWindow = 0xFFFF;

std::uint32_t LoadBig(const std::string& bytes, std::size_t at, std::size_t count) {
  return Load(bytes, at, count, ByteOrder::kBig);
}

void AppendBig(std::string* bytes, std::uint32_t value, std::size_t count) {
  Append(bytes, value, count, ByteOrder::kBig);
}

// The sum of 16-bit words that both protocols' checksums are made from.
std::uint32_t Sum(const std::string& bytes) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i]));
    sum += i % 2 == 0 ? byte << 8 : byte;
  }
  return sum;
}

void StoreChecksum(std::string* bytes, std::size_t at, std::uint32_t sum) {
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  (*bytes)[at] = static_cast<char>(~sum >> 8);
  (*bytes)[at + 1] = static_cast<char>(~sum);
}

std::string MakeAddresses(const TcpSegment& segment) {
  std::string bytes;
  AppendBig(&bytes, segment.from.ip, 4);
  AppendBig(&bytes, segment.to.ip, 4);
  return bytes;
}

std::string MakeTcpPart(const TcpSegment& segment) {
  std::string bytes;
  AppendBig(&bytes, segment.from.port, 2);
  AppendBig(&bytes, segment.to.port, 2);
  AppendBig(&bytes, segment.sequence, 4);
  AppendBig(&bytes, segment.acknowledged, 4);
  AppendBig(&bytes, kTcpHeadLen / 4 << 4, 1);
  AppendBig(&bytes, segment.flags, 1);
  AppendBig(&bytes, kWindow, 2);
  AppendBig(&bytes, 0, 4);  // checksum, urgent pointer
  bytes += segment.payload;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  StoreChecksum(&bytes, 16, Sum(bytes) + Sum(MakeAddresses(segment)) + kTcpProtocol + length);
  return bytes;
}

// Where the IP packet begins; npos for frames that say that they hold none.
std::size_t FindIpPacket(const Frame& frame) {
  constexpr std::uint32_t kIpv4 = 0x0800;
  const auto behind = [&frame](std::size_t length, std::size_t protocol_at) {
    const bool is_ip = frame.bytes.size() > length && LoadBig(frame.bytes, protocol_at, 2) == kIpv4;
    return is_ip ? length : std::string::npos;
  };
  switch (frame.link_type) {
    case LinkType::kRawIp:
      return 0;
    case LinkType::kLoopback:
      return 4;
    case LinkType::kEthernet:
      return behind(14, 12);
    case LinkType::kLinuxCooked:
      return behind(16, 14);
    case LinkType::kLinuxCooked2:
      return behind(20, 0);
  }
  return std::string::npos;
}

}  // namespace

std::string MakeIpPacket(const TcpSegment& segment) {
  const std::string tcp = MakeTcpPart(segment);
  std::string packet;
  AppendBig(&packet, 0x4500, 2);  // version 4, five words of header
  AppendBig(&packet, static_cast<std::uint32_t>(kIpHeadLen + tcp.size()), 2);
  AppendBig(&packet, 0x00004000, 4);  // not to be fragmented
  AppendBig(&packet, 64, 1);          // time to live
  AppendBig(&packet, kTcpProtocol, 1);
  AppendBig(&packet, 0, 2);  // checksum
  packet += MakeAddresses(segment);
  StoreChecksum(&packet, 10, Sum(packet));
  return packet + tcp;
}

std::optional<TcpSegment> FindTcpSegment(const Frame& frame) {
  const std::size_t ip = FindIpPacket(frame);
  const std::string& bytes = frame.bytes;
  if (ip == std::string::npos || bytes.size() < ip + kIpHeadLen + kTcpHeadLen) return {};
  const std::size_t ip_head_len = LoadBig(bytes, ip, 1) % 16 * 4;
  // Systems that leave the cutting to the network card hand segments over without a length.
  const std::size_t ip_len = LoadBig(bytes, ip + 2, 2);
  const std::size_t end = ip_len == 0 ? bytes.size() : ip + ip_len;
  const std::size_t tcp = ip + ip_head_len;
  const bool is_tcp = LoadBig(bytes, ip, 1) / 16 == 4 && LoadBig(bytes, ip + 9, 1) == kTcpProtocol;
  if (!is_tcp || end > bytes.size() || tcp + kTcpHeadLen > end) return {};
  const std::size_t payload = tcp + LoadBig(bytes, tcp + 12, 1) / 16 * 4;
  if (ip_head_len < kIpHeadLen || payload < tcp + kTcpHeadLen || payload > end) return {};
  TcpSegment segment;
  segment.from = {LoadBig(bytes, ip + 12, 4), static_cast<std::uint16_t>(LoadBig(bytes, tcp, 2))};
  segment.to = {LoadBig(bytes, ip + 16, 4), static_cast<std::uint16_t>(LoadBig(bytes, tcp + 2, 2))};
  segment.sequence = LoadBig(bytes, tcp + 4, 4);
  segment.acknowledged = LoadBig(bytes, tcp + 8, 4);
  segment.flags = LoadBig(bytes, tcp + 13, 1);
  segment.payload = bytes.substr(payload, end - payload);
  return segment;
}

}  // namespace capture
