#pragma once

#include <stdexcept>
#include <utility>

#include "platform/platform.h"
#include "tests/support/threads.h"

namespace testkit {

using platform::Readiness;

constexpr char kLoopbackHost[] = "127.0.0.1";

// While one lives, its thread meets none of the faults that a test ordered.
struct FaultFree {
  FaultFree() { ++s_depth; }
  ~FaultFree() { --s_depth; }

  static inline thread_local int s_depth = 0;
};

// Owns a descriptor, on Windows a socket; -1: none.
class Descriptor {
 public:
  explicit Descriptor(platform::Socket number = -1) : m_number(static_cast<int>(number)) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor& operator=(Descriptor other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }

  int Get() const { return m_number; }
  void Close() {
    if (m_number >= 0) platform::CloseSocket(std::exchange(m_number, -1));
  }

 private:
  int m_number;
};

inline Descriptor OpenSocket() {
  platform::StartSockets();
  return Descriptor(platform::OpenTcpSocket());
}

inline platform::SocketAddress Loopback(std::uint16_t port) {
  const std::uint32_t address = platform::ParseAddress(kLoopbackHost);
  return {platform::kFamilyInet, platform::PortToNetwork(port), address, {}};
}

inline std::uint16_t LocalPort(const Descriptor& socket) {
  platform::SocketAddress address{};
  platform::GetLocalAddress(socket.Get(), &address);
  return platform::PortToHost(address.port);
}

inline bool WaitFor(Readiness readiness, const Descriptor& socket, Milliseconds limit) {
  return platform::WaitForSocket(socket.Get(), readiness, static_cast<int>(limit.count()));
}

// What the platform has no call for.
void Listen(const Descriptor& socket, int backlog);
int Receive(const Descriptor& socket, char* bytes, int most);  // 0: an orderly end; -1: a reset
void HalfClose(const Descriptor& socket);
bool IsNonBlocking(const Descriptor& socket);  // asked while nothing waits at the socket
bool IsInherited(const Descriptor& socket);    // by child processes
bool DelaysSmallWrites(const Descriptor& socket);
void LimitBuffers(const Descriptor& socket, int bytes);

// Windows reports a connect that failed as an exception.
extern const bool kFailedConnectsAreWritable;

}  // namespace testkit
