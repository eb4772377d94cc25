#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "tests/support/socket_io.h"
#include "tests/support/wire.h"

namespace testkit {

// How the other side ended the link.
enum class LinkEnd { kStillOpen, kOrderly, kReset };

// This end of one TCP link, played by the test itself; nothing happens between its calls. A peer
// that is not asked to receive stops reading, one that is not asked to send stays mute.
//
// Every call blocks for at most its limit. Sending throws std::runtime_error when the bytes are not
// taken within ten seconds or the link is gone; receiving throws it on a malformed package (mark,
// check sum), and gives nothing when the limit passes or the link ends first.
class Peer {
 public:
  using Milliseconds = std::chrono::milliseconds;

  explicit Peer(Descriptor socket) : m_socket(std::move(socket)) {}

  // Plays the calling side: links to a port of this machine, or throws.
  static Peer Connect(std::uint16_t port, Milliseconds limit);

  void SendPackage(const Bytes& body) { SendRaw(BuildPackage(body)); }
  void SendHeartbeat() { SendRaw(HeartbeatPackage()); }
  void SendRaw(const Bytes& bytes);
  // With a pause of a millisecond after each piece, so that most pieces are read by themselves.
  void SendInPieces(const Bytes& bytes, std::size_t piece_size = 1);

  // The body of the next data package. Heartbeats on the way are counted and skipped.
  std::optional<Bytes> ReceivePackage(Milliseconds limit);
  // The next bytes of the stream, whatever they mean; all of them or nothing.
  std::optional<Bytes> ReceiveExactly(std::size_t count, Milliseconds limit);
  // Reads until this many heartbeats came over the link; data packages are kept for later.
  bool WaitForHeartbeats(std::size_t count, Milliseconds limit);
  // Waits for the other side to end the link; what it sent before stays receivable.
  LinkEnd WaitClosed(Milliseconds limit);

  void Close() { m_socket.Close(); }           // orderly; a reset when received bytes are unread
  void Reset() { CloseWithReset(&m_socket); }  // the other side's next call fails
  // Half-closed: the other side reads the end of the stream.
  void StopSending() { testkit::StopSending(m_socket); }

 private:
  bool ReadMore(const Deadline& deadline);
  bool ReadPackage(const Deadline& deadline);

  Descriptor m_socket;
  LinkEnd m_end = LinkEnd::kStillOpen;
  Bytes m_stream;              // read and not yet cut into packages
  std::deque<Bytes> m_bodies;  // of data packages that were cut and not yet taken
  std::size_t m_heartbeat_count = 0;
};

}  // namespace testkit
