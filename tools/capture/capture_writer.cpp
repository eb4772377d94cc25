#include "tools/capture/capture_writer.h"

#include <stdexcept>

#include "tools/capture/byte_order.h"
#include "tools/capture/frame.h"
#include "tools/capture/pcapng.h"

namespace capture {

namespace {

void AppendWord(std::string* bytes, std::uint32_t value) {
  Append(bytes, value, 4, ByteOrder::kLittle);
}

std::string MakeSection() {
  std::string body;
  AppendWord(&body, kByteOrderMark);
  AppendWord(&body, 1);  // version 1.0
  AppendWord(&body, 0xFFFFFFFF);
  AppendWord(&body, 0xFFFFFFFF);  // its length is left open
  return body;
}

// Times count microseconds unless an option says otherwise.
std::string MakeInterface() {
  std::string body;
  AppendWord(&body, static_cast<std::uint32_t>(LinkType::kRawIp));
  AppendWord(&body, 0);  // no limit to a packet's length
  return body;
}

std::string MakePacket(std::int64_t time_us, const std::string& packet) {
  const auto length = static_cast<std::uint32_t>(packet.size());
  std::string body;
  AppendWord(&body, 0);  // the interface
  AppendWord(&body, static_cast<std::uint32_t>(time_us >> 32));
  AppendWord(&body, static_cast<std::uint32_t>(time_us));
  AppendWord(&body, length);
  AppendWord(&body, length);
  return body + packet;
}

}  // namespace

CaptureWriter::CaptureWriter(const std::string& path) : m_file(std::fopen(path.c_str(), "wb")) {
  if (!m_file) throw std::runtime_error("cannot write to '" + path + "'");
  const CFTScopedLock guard(&m_lock);
  if (!WriteBlock(kSectionBlock, MakeSection()) || !WriteBlock(kInterfaceBlock, MakeInterface())) {
    throw std::runtime_error("cannot write to '" + path + "': is the disk full?");
  }
}

bool CaptureWriter::Write(std::int64_t time_us, const std::string& packet) {
  const CFTScopedLock guard(&m_lock);
  return WriteBlock(kPacketBlock, MakePacket(time_us, packet));
}

bool CaptureWriter::IsSound() const {
  const CFTScopedLock guard(&m_lock);
  return m_sound;
}

bool CaptureWriter::WriteBlock(std::uint32_t type, std::string body) {
  body.resize(RoundUp(body.size()));
  const auto length = static_cast<std::uint32_t>(body.size() + kBlockFrameLen);
  std::string block;
  AppendWord(&block, type);
  AppendWord(&block, length);
  block += body;
  AppendWord(&block, length);
  m_sound = m_sound && std::fwrite(block.data(), 1, block.size(), m_file.get()) == block.size() &&
            std::fflush(m_file.get()) == 0;
  return m_sound;
}

}  // namespace capture
