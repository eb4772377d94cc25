#include "tests/support/peer.h"

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace testkit {

namespace {

constexpr std::chrono::seconds kSendLimit{10};

}  // namespace

Peer Peer::Connect(std::uint16_t port, Milliseconds limit) {
  Descriptor socket = OpenSocket();
  if (!ConnectTo(socket, port, Deadline(limit))) {
    throw std::runtime_error("no answer to a connect to port " + std::to_string(port));
  }
  return Peer(std::move(socket));
}

void Peer::SendRaw(const Bytes& bytes) {
  const Deadline deadline(kSendLimit);
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    if (!WaitReady(m_socket, Direction::kWrite, deadline)) {
      throw std::runtime_error("the other side took only " + std::to_string(sent) + " of " +
                               std::to_string(bytes.size()) + " bytes");
    }
    sent += WriteAvailable(m_socket, bytes.data() + sent, bytes.size() - sent);
  }
}

void Peer::SendInPieces(const Bytes& bytes, std::size_t piece_size) {
  if (piece_size == 0) throw std::invalid_argument("a piece has at least one byte");
  for (std::size_t offset = 0; offset < bytes.size(); offset += piece_size) {
    SendRaw(bytes.substr(offset, piece_size));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

std::optional<Bytes> Peer::ReceivePackage(Milliseconds limit) {
  const Deadline deadline(limit);
  while (m_bodies.empty()) {
    if (!ReadPackage(deadline)) return std::nullopt;
  }
  std::optional<Bytes> body(std::move(m_bodies.front()));
  m_bodies.pop_front();
  return body;
}

std::optional<Bytes> Peer::ReceiveExactly(std::size_t count, Milliseconds limit) {
  if (!m_bodies.empty()) {
    throw std::logic_error("packages were read already: receive them before raw bytes");
  }
  const Deadline deadline(limit);
  while (m_stream.size() < count) {
    if (!ReadMore(deadline)) return std::nullopt;
  }
  Bytes bytes = m_stream.substr(0, count);
  m_stream.erase(0, count);
  return bytes;
}

bool Peer::WaitForHeartbeats(std::size_t count, Milliseconds limit) {
  const Deadline deadline(limit);
  while (m_heartbeat_count < count) {
    if (!ReadPackage(deadline)) return false;
  }
  return true;
}

LinkEnd Peer::WaitClosed(Milliseconds limit) {
  const Deadline deadline(limit);
  while (ReadMore(deadline)) {
  }
  return m_end;
}

// False when the deadline passed or the stream has ended.
bool Peer::ReadMore(const Deadline& deadline) {
  while (m_end == LinkEnd::kStillOpen && WaitReady(m_socket, Direction::kRead, deadline)) {
    const ReadResult result = ReadAvailable(m_socket, &m_stream);
    if (result == ReadResult::kBytes) return true;
    if (result == ReadResult::kOrderlyEnd) m_end = LinkEnd::kOrderly;
    if (result == ReadResult::kReset) m_end = LinkEnd::kReset;
  }
  return false;
}

// Cuts one package off the stream.
bool Peer::ReadPackage(const Deadline& deadline) {
  std::optional<Bytes> body;
  while (!(body = TakeBody(&m_stream))) {
    if (!ReadMore(deadline)) return false;
  }
  if (IsHeartbeat(*body)) {
    ++m_heartbeat_count;
  } else {
    m_bodies.push_back(std::move(*body));
  }
  return true;
}

}  // namespace testkit
