#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "tests/support/socket_io.h"
#include "tests/support/wire.h"

namespace testkit {

// A package that arrived, and when this end read it.
struct Arrival {
  Bytes body;
  std::chrono::steady_clock::time_point time;
  bool is_heartbeat = false;
};

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

  explicit Peer(Descriptor socket);

  // Plays the calling side: links to a port of this machine, or throws.
  static Peer Connect(std::uint16_t port, Milliseconds limit);

  void SendPackage(const Bytes& body);
  void SendHeartbeat();
  void SendRaw(const Bytes& bytes);
  // With a pause of a millisecond after each piece, so that most pieces are read by themselves.
  void SendInPieces(const Bytes& bytes, std::size_t piece_size = 1);

  // The body of the next data package. Heartbeats on the way are counted and skipped.
  std::optional<Bytes> ReceivePackage(Milliseconds limit);
  // The next package, be it data or a heartbeat.
  std::optional<Arrival> ReceiveAny(Milliseconds limit);
  // The next bytes of the stream, whatever they mean; all of them or nothing.
  std::optional<Bytes> ReceiveExactly(std::size_t count, Milliseconds limit);
  // Reads until this many heartbeats came over the link; data packages are kept for later.
  bool WaitForHeartbeats(std::size_t count, Milliseconds limit);

  std::size_t HeartbeatCount() const { return m_heartbeat_count; }
  // Every package read so far, in order.
  const std::vector<Arrival>& Arrivals() const { return m_arrivals; }

  // Waits for the other side to end the link; what it sent before stays receivable.
  LinkEnd WaitClosed(Milliseconds limit);

  void Close();        // orderly; a reset when received bytes are unread, as always with TCP
  void Reset();        // the other side's next call fails
  void StopSending();  // half-closed: the other side reads the end of the stream
  void ShrinkReceiveBuffer(int bytes);

 private:
  bool ReadMore(const Deadline& deadline);
  bool ReadPackage(const Deadline& deadline);
  Arrival TakeArrival();

  Descriptor m_socket;
  LinkEnd m_end = LinkEnd::kStillOpen;
  Bytes m_stream;                 // read and not yet cut into packages
  std::deque<Arrival> m_waiting;  // cut and not yet taken
  std::vector<Arrival> m_arrivals;
  std::size_t m_heartbeat_count = 0;
};

}  // namespace testkit
