// Winsock for the kit's own sources.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include "tests/support/socket_io.h"

namespace testkit {

// Handles of this system fit into 32 bits.
inline SOCKET Native(const Descriptor& socket) {
  return static_cast<SOCKET>(socket.Get());
}

inline void StartWinsock() {
  static const int failed = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (failed != 0) ThrowSystemError("WSAStartup");
}

}  // namespace testkit
