// What the kit's servers are made of: raw sockets of this machine, each call with a deadline. None
// of it uses the calls that tests may have told to fail (send, recv and poll; on Windows select).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/wire.h"

namespace testkit {

constexpr char kLoopbackHost[] = "127.0.0.1";

class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds limit)
      : m_end(std::chrono::steady_clock::now() + limit) {}

  // Rounded up; never negative.
  std::chrono::milliseconds Remaining() const;

 private:
  std::chrono::steady_clock::time_point m_end;
};

// Owns a descriptor, on Windows a socket; -1 when it owns none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : m_fd(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Descriptor& operator=(Descriptor other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }

  int Get() const { return m_fd; }
  void Close();

 private:
  int m_fd;
};

// Throws std::system_error with the text and the system's reason.
[[noreturn]] void ThrowSystemError(const std::string& what);

// A non-blocking TCP socket that no child process inherits; throws when there is none.
Descriptor OpenSocket();
// The same, bound to a port of this machine that the system chose and that stays its own.
Descriptor OpenBoundSocket();
std::uint16_t LocalPort(const Descriptor& socket);

void StartListening(const Descriptor& socket, int backlog);
// Refuses connects from here on and resets those that nobody accepted; the port stays bound.
void EndListening(Descriptor* socket);
// Non-blocking; owns nothing when nobody waits.
Descriptor AcceptWaiting(const Descriptor& listening);
// Starts a connect to a port of this machine and waits until it is decided. False at the deadline;
// throws when it is refused.
bool ConnectTo(const Descriptor& socket, std::uint16_t port, const Deadline& deadline);

enum class Direction { kRead, kWrite };

// Waits until a read or a write has something to do; false when the deadline passes first.
bool WaitReady(const Descriptor& socket, Direction direction, const Deadline& deadline);

struct Interest {
  const Descriptor* socket;
  bool also_write;  // besides what there is to read
};

// Waits, without a limit, until there is something to do at one of them.
void WaitForAny(const std::vector<Interest>& interests);

// The bytes that are there, at most 64 KiB. kNothing: none now. Otherwise the stream is over.
enum class ReadResult { kBytes, kNothing, kOrderlyEnd, kReset };
ReadResult ReadAvailable(const Descriptor& socket, Bytes* bytes);
// How many of the bytes the system took now; throws when the link is gone.
std::size_t WriteAvailable(const Descriptor& socket, const char* data, std::size_t size);

void StopSending(const Descriptor& socket);  // half-closes it
void SetReceiveBuffer(const Descriptor& socket, int bytes);
void CloseWithReset(Descriptor* socket);

// How the library set up a socket of its own.
bool IsNonBlocking(const Descriptor& socket);  // asked while nothing waits at the socket
bool IsInherited(const Descriptor& socket);    // by child processes
bool DelaysSmallWrites(const Descriptor& socket);
int SendBuffer(const Descriptor& socket);  // bytes, as they were asked for
int ReceiveBuffer(const Descriptor& socket);

// A port of this machine that is its owner's alone.
class OwnPort {
 public:
  const char* Host() const { return kLoopbackHost; }
  std::uint16_t Port() const { return m_port; }

 protected:
  Descriptor m_socket = OpenBoundSocket();

 private:
  std::uint16_t m_port = LocalPort(m_socket);
};

}  // namespace testkit
