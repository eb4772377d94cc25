// A datagram socket that is linked to itself: sockets can be waited for together with it alone.
#include "tests/support/wake_event.h"

#include "tests/support/win32/winsock.h"

namespace testkit {

namespace {

Descriptor OpenSocketToItself() {
  StartWinsock();
  Descriptor self(static_cast<int>(socket(AF_INET, SOCK_DGRAM, 0)));
  if (self.Get() < 0) ThrowSystemError("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const system_address = reinterpret_cast<sockaddr*>(&address);
  int length = sizeof address;
  u_long non_blocking = 1;
  if (bind(Native(self), system_address, length) != 0 ||
      getsockname(Native(self), system_address, &length) != 0 ||
      connect(Native(self), system_address, length) != 0 ||
      ioctlsocket(Native(self), FIONBIO, &non_blocking) != 0) {
    ThrowSystemError("linking a socket to itself");
  }
  return self;
}

}  // namespace

WakeEvent::WakeEvent() : m_descriptor(OpenSocketToItself()) {}

void WakeEvent::Set() const {
  WriteAvailable(m_descriptor, "!", 1);
}

void WakeEvent::Clear() const {
  Bytes signals;
  while (ReadAvailable(m_descriptor, &signals) == ReadResult::kBytes) {
  }
}

}  // namespace testkit
