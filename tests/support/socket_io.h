// What the kit's servers are made of: raw sockets of this machine, each call with a deadline. None
// of it uses send, recv or poll, which tests may have told to fail.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/support/wire.h"

namespace testkit {

constexpr char kLoopbackHost[] = "127.0.0.1";

class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds limit)
      : m_end(std::chrono::steady_clock::now() + limit) {}

  // Never negative.
  std::chrono::nanoseconds Remaining() const;

 private:
  std::chrono::steady_clock::time_point m_end;
};

// Owns a descriptor; -1 when it owns none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : m_fd(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;

  int Get() const { return m_fd; }
  void Close();

 private:
  int m_fd;
};

// Throws std::runtime_error with the text and the system's reason.
[[noreturn]] void ThrowSystemError(const std::string& what);

// A non-blocking TCP socket that no child process inherits; throws when there is none.
Descriptor OpenSocket();
// The same, bound to a port of this machine that the system chose and that stays its own.
Descriptor OpenBoundSocket();
std::uint16_t LocalPort(const Descriptor& socket);

void StartListening(const Descriptor& socket, int backlog);
// Non-blocking; owns nothing when nobody waits.
Descriptor AcceptWaiting(const Descriptor& listening);
// Starts a connect to a port of this machine and waits until it is decided. False at the deadline;
// throws when it is refused.
bool ConnectTo(const Descriptor& socket, std::uint16_t port, const Deadline& deadline);

// Waits for POLLIN or POLLOUT; false when the deadline passes first.
bool WaitReady(const Descriptor& socket, short events, const Deadline& deadline);

// The bytes that are there, at most 64 KiB. kNothing: none now. Otherwise the stream is over.
enum class ReadResult { kBytes, kNothing, kOrderlyEnd, kReset };
ReadResult ReadAvailable(const Descriptor& socket, Bytes* bytes);
// How many of the bytes the system took now; throws when the link is gone.
std::size_t WriteAvailable(const Descriptor& socket, const char* data, std::size_t size);

void CloseWithReset(Descriptor* socket);

}  // namespace testkit
