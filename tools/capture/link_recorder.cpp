#include "tools/capture/link_recorder.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace capture {

namespace {

std::int64_t GetTimeUs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

LinkRecorder::LinkRecorder(CaptureWriter* writer, const Address& application, const Address& server)
    : m_writer(writer), m_application{application}, m_server{server} {}

bool LinkRecorder::Begin() {
  return Write(Direction::kToServer, TcpFlags::kSyn) &&
         Write(Direction::kToApplication, TcpFlags::kSyn | TcpFlags::kAck) &&
         Write(Direction::kToServer, TcpFlags::kAck);
}

bool LinkRecorder::Add(Direction direction, const char* data, std::size_t length) {
  for (std::size_t at = 0; at < length; at += kMostPayload) {
    const std::string payload(data + at, std::min(length - at, kMostPayload));
    if (!Write(direction, TcpFlags::kPsh | TcpFlags::kAck, payload)) return false;
  }
  return true;
}

bool LinkRecorder::End(Direction direction) {
  return Write(direction, TcpFlags::kFin | TcpFlags::kAck);
}

bool LinkRecorder::Write(Direction direction, unsigned flags, std::string payload) {
  const bool to_server = direction == Direction::kToServer;
  Side& from = to_server ? m_application : m_server;
  const Side& to = to_server ? m_server : m_application;
  TcpSegment segment{from.address,     to.address, from.next_sequence,
                     to.next_sequence, flags,      std::move(payload)};
  const bool counts_itself = (flags & (TcpFlags::kSyn | TcpFlags::kFin)) != 0;
  from.next_sequence +=
      static_cast<std::uint32_t>(segment.payload.size()) + (counts_itself ? 1 : 0);
  return m_writer->Write(GetTimeUs(), MakeIpPacket(segment));
}

}  // namespace capture
