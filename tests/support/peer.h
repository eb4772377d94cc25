#pragma once

#include <algorithm>
#include <system_error>

#include "tests/support/socket.h"
#include "tests/support/wire.h"

namespace testkit {

enum class LinkEnd { kStillOpen, kOrderly, kReset };

// This end of one TCP link, played by the test itself. Sending throws std::system_error when the
// bytes are not taken within ten seconds or the link is gone. Receiving throws std::runtime_error
// on a malformed package, and gives nothing when the limit passes or the link ends first.
class Peer {
 public:
  explicit Peer(Descriptor socket) : m_socket(std::move(socket)) {
    platform::SetBlocking(m_socket.Get(), false);
  }

  // Links to a port of this machine, or gives nothing.
  static std::optional<Peer> TryConnect(std::uint16_t port, Milliseconds limit) {
    const FaultFree guard;
    Peer peer(OpenSocket());
    platform::SocketAddress local{}, remote = Loopback(port);
    platform::ConnectSocket(peer.m_socket.Get(), remote);
    if (!WaitFor(Readiness::kWritable, peer.m_socket, limit)) return std::nullopt;
    const auto state = platform::TakeConnectResult(peer.m_socket.Get(), &local, &remote);
    if (state != platform::ConnectState::kConnected) return std::nullopt;
    return peer;
  }
  static Peer Connect(std::uint16_t port, Milliseconds limit) {
    auto peer = TryConnect(port, limit);
    return peer ? std::move(*peer) : throw std::runtime_error("no link to the port");
  }

  void SendPackage(const Bytes& body) { SendRaw(BuildPackage(body)); }
  void SendHeartbeat() { SendRaw(kHeartbeatPackage); }
  void SendRaw(const Bytes& bytes) {
    const FaultFree guard;
    for (std::size_t sent = 0; sent < bytes.size();) {
      const auto asked = static_cast<int>(std::min(bytes.size() - sent, kMostMoved));
      const platform::ConstBytePiece piece{bytes.data() + sent, asked};
      auto error = platform::SocketError::kBroken;
      if (WaitFor(Readiness::kWritable, m_socket, std::chrono::seconds(10))) {
        sent += static_cast<std::size_t>(platform::SendPieces(m_socket.Get(), &piece, 1, &error));
      }
      if (error == platform::SocketError::kBroken) {
        throw std::system_error(ECONNABORTED, std::generic_category());
      }
    }
  }

  std::optional<Bytes> ReceiveAny(Milliseconds limit) {  // heartbeats too
    const auto deadline = Clock::now() + limit;
    std::optional<Bytes> body;
    while (!(body = TakeBody(m_stream, &m_taken)) && ReadMore(deadline)) continue;
    return body;
  }
  std::optional<Bytes> ReceivePackage(Milliseconds limit) {
    std::optional<Bytes> body;
    while ((body = ReceiveAny(limit)) && IsHeartbeat(*body)) continue;
    return body;
  }
  std::optional<Bytes> ReceiveExactly(std::size_t count, Milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (m_stream.size() - m_taken < count && ReadMore(deadline)) continue;
    if (m_stream.size() - m_taken < count) return std::nullopt;
    return m_stream.substr(std::exchange(m_taken, m_taken + count), count);
  }
  // For the next so many of them; data packages are dropped.
  bool WaitForHeartbeats(std::size_t count, Milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    std::optional<Bytes> body;
    while (count > 0 && (body = ReceiveAny(Left(deadline)))) count -= IsHeartbeat(*body) ? 1 : 0;
    return count == 0;
  }
  LinkEnd WaitClosed(Milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (ReadMore(deadline)) continue;
    return m_end;
  }

  void Close() { m_socket.Close(); }  // orderly; a reset when received bytes are unread
  void Reset() {                      // the other side's next call fails
    platform::SetLinger(m_socket.Get(), true, 0);
    Close();
  }
  void StopSending() { HalfClose(m_socket); }  // the other side reads the end of the stream

 private:
  using Clock = std::chrono::steady_clock;

  static constexpr std::size_t kMostMoved = 1 << 20;

  static Milliseconds Left(Clock::time_point deadline) {
    return std::max(std::chrono::ceil<Milliseconds>(deadline - Clock::now()), Milliseconds(0));
  }

  bool ReadMore(Clock::time_point deadline) {
    const FaultFree guard;
    if (m_end != LinkEnd::kStillOpen) return false;
    if (!WaitFor(Readiness::kReadable, m_socket, Left(deadline))) return false;
    m_stream.erase(0, std::exchange(m_taken, 0U));  // once for all that was taken before
    Bytes piece(kMostMoved, '\0');
    const int count = Receive(m_socket, piece.data(), kMostMoved);
    if (count > 0) m_stream.append(piece, 0, static_cast<std::size_t>(count));
    if (count <= 0) m_end = count == 0 ? LinkEnd::kOrderly : LinkEnd::kReset;
    return count > 0;
  }

  Descriptor m_socket;
  LinkEnd m_end = LinkEnd::kStillOpen;
  Bytes m_stream;           // what was read
  std::size_t m_taken = 0;  // of it
};

}  // namespace testkit
