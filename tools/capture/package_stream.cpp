#include "tools/capture/package_stream.h"

#include <algorithm>

#include "client/package.h"
#include "tools/capture/byte_order.h"

namespace capture {

namespace {

constexpr std::size_t kHeadLen = ft::kPkgHeadLen;
constexpr std::int32_t kTooLongPkg = 0x500000;  // the least length that ends a client's link

bool HasRightChecksum(const std::string& wire) {
  unsigned char head[kHeadLen];
  ft::EncodeHead(head, wire.data() + kHeadLen, static_cast<std::int32_t>(wire.size() - kHeadLen));
  return std::equal(head + 8, head + kHeadLen, reinterpret_cast<const unsigned char*>(&wire[8]));
}

}  // namespace

std::string WirePackage::GetBody() const {
  return wire.substr(std::min(wire.size(), kHeadLen));
}

std::uint32_t WirePackage::GetWord(std::size_t index) const {
  return Load(wire, 4 * index, 4, ByteOrder::kBig);
}

bool WirePackage::IsHeartbeat() const {
  const auto body_len = static_cast<std::int32_t>(wire.size() - kHeadLen);
  return verdict == Verdict::kSound && ft::IsHeartbeatBody(wire.data() + kHeadLen, body_len);
}

// What was taken goes here: the rest moves once for many packages.
void PackageStream::Add(const char* data, std::size_t length) {
  m_bytes.erase(0, m_taken);
  m_taken = 0;
  m_bytes.append(data, length);
}

std::optional<WirePackage> PackageStream::Take() {
  PassOver();
  if (!m_readable || CountRest() < kHeadLen) return {};
  const std::int32_t length = ft::GetPkgLen(m_bytes.data() + m_taken, ft::kPkgHeadLen);
  if (length < 0) {
    m_readable = false;
    return TakeFront(WirePackage::Verdict::kNoPackage, CountRest());
  }
  const auto whole = static_cast<std::size_t>(length);
  if (length >= kTooLongPkg) {
    m_to_pass_over = whole - kHeadLen;
    return TakeFront(WirePackage::Verdict::kTooLong, kHeadLen);
  }
  if (CountRest() < whole) return {};
  WirePackage package = TakeFront(WirePackage::Verdict::kSound, whole);
  if (!HasRightChecksum(package.wire)) package.verdict = WirePackage::Verdict::kWrongChecksum;
  return package;
}

WirePackage PackageStream::TakeFront(WirePackage::Verdict verdict, std::size_t length) {
  WirePackage package{verdict, m_bytes.substr(m_taken, length)};
  m_taken += length;
  return package;
}

void PackageStream::PassOver() {
  const std::size_t length = m_readable ? std::min(m_to_pass_over, CountRest()) : CountRest();
  m_taken += length;
  m_to_pass_over -= std::min(m_to_pass_over, length);
}

}  // namespace capture
