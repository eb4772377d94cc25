#include "tests/support/peer.h"

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace testkit {

namespace {

constexpr std::chrono::seconds kSendLimit{10};

[[noreturn]] void ThrowMalformed(const char* fault, const Bytes& stream) {
  throw std::runtime_error(std::string("package with a wrong ") + fault + ": " + HexDump(stream));
}

}  // namespace

Peer::Peer(Descriptor socket) : m_socket(std::move(socket)) {}

Peer Peer::Connect(std::uint16_t port, Milliseconds limit) {
  Descriptor socket = OpenSocket();
  if (!ConnectTo(socket, port, Deadline(limit))) {
    throw std::runtime_error("no answer to a connect to port " + std::to_string(port));
  }
  return Peer(std::move(socket));
}

void Peer::SendPackage(const Bytes& body) {
  SendRaw(BuildPackage(body));
}

void Peer::SendHeartbeat() {
  SendRaw(HeartbeatPackage());
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
  while (!m_waiting.empty() || ReadPackage(deadline)) {
    Arrival arrival = TakeArrival();
    if (!arrival.is_heartbeat) return std::move(arrival.body);
  }
  return std::nullopt;
}

std::optional<Arrival> Peer::ReceiveAny(Milliseconds limit) {
  if (m_waiting.empty() && !ReadPackage(Deadline(limit))) return std::nullopt;
  return TakeArrival();
}

std::optional<Bytes> Peer::ReceiveExactly(std::size_t count, Milliseconds limit) {
  if (!m_waiting.empty()) {
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

void Peer::Close() {
  m_socket.Close();
}

void Peer::Reset() {
  CloseWithReset(&m_socket);
}

void Peer::StopSending() {
  testkit::StopSending(m_socket);
}

void Peer::ShrinkReceiveBuffer(int bytes) {
  SetReceiveBuffer(m_socket, bytes);
}

// False when the deadline passed or the stream has ended.
bool Peer::ReadMore(const Deadline& deadline) {
  while (m_end == LinkEnd::kStillOpen && WaitReady(m_socket, Direction::kRead, deadline)) {
    switch (ReadAvailable(m_socket, &m_stream)) {
      case ReadResult::kBytes:
        return true;
      case ReadResult::kNothing:
        break;
      case ReadResult::kOrderlyEnd:
        m_end = LinkEnd::kOrderly;
        break;
      case ReadResult::kReset:
        m_end = LinkEnd::kReset;
        break;
    }
  }
  return false;
}

// Moves one package from the stream to the waiting ones.
bool Peer::ReadPackage(const Deadline& deadline) {
  std::optional<ParsedPackage> package = ParsePackage(m_stream);
  while (!package) {
    if (!ReadMore(deadline)) return false;
    package = ParsePackage(m_stream);
  }
  if (package->mark != 1) ThrowMalformed("mark", m_stream);
  if (!package->check_sum_matches) ThrowMalformed("check sum", m_stream);
  m_stream.erase(0, package->size);
  const bool is_heartbeat = IsHeartbeat(package->body);
  if (is_heartbeat) ++m_heartbeat_count;
  m_waiting.push_back({std::move(package->body), std::chrono::steady_clock::now(), is_heartbeat});
  m_arrivals.push_back(m_waiting.back());
  return true;
}

Arrival Peer::TakeArrival() {
  Arrival arrival = std::move(m_waiting.front());
  m_waiting.pop_front();
  return arrival;
}

}  // namespace testkit
