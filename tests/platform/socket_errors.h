// What the engine makes of the system's socket errors. The situations and their meanings hold for
// every backend; each has a column of numbers.
#pragma once

#include <cerrno>
#include <cstdint>

#include "00shcode/ftmtsockimpl/sock.h"
#include "platform/platform.h"
#include "tests/support/socket_traits.h"

namespace testkit {

using platform::SocketError;

constexpr std::int32_t kNever = 99;  // not an error of this call
// What BeginConnect makes of it.
constexpr auto kGoesOn = static_cast<std::int32_t>(FTConnectResult::kInProgress);
constexpr auto kFails = static_cast<std::int32_t>(FTConnectResult::kFailed);
// What FTSockAccept makes of it.
constexpr std::int32_t kNoRoom = -1;
constexpr std::int32_t kNobody = 0;
constexpr std::int32_t kAgain = 1;  // calls again, and somebody is there

struct SocketErrorCase {
  const char* situation;
  SocketError meaning;
  std::int32_t connecting;
  std::int32_t accepting;
  int posix;  // 0: has another meaning there, or none
  int win32;
};

constexpr SocketErrorCase kSocketErrors[] = {
    // clang-format off
    {"nothing possible now", SocketError::kWouldBlock,  kFails,  kNobody, EAGAIN,       0},
    {"nothing more for now", SocketError::kWouldBlock,  kGoesOn, kNobody, 0,            10035},
    {"connect goes on",      SocketError::kInProgress,  kGoesOn, kNever,  EINPROGRESS,  10036},
    {"interrupted",          SocketError::kInterrupted, kGoesOn, kAgain,  EINTR,        10004},
    {"nobody listens",       SocketError::kRefused,     kGoesOn, kNever,  ECONNREFUSED, 10061},
    {"caller gave up",       SocketError::kAborted,     kNever,  kNobody, ECONNABORTED, 10053},
    {"caller gave up oddly", SocketError::kAborted,     kNever,  kNobody, EPROTO,       0},
    {"reset by the peer",    SocketError::kBroken,      kNever,  kNever,  ECONNRESET,   0},
    {"caller was reset",     SocketError::kBroken,      kNever,  kNobody, 0,            10054},
    {"write to a dead peer", SocketError::kBroken,      kNever,  kNever,  EPIPE,        10058},
    {"no buffers",           SocketError::kBroken,      kFails,  kNoRoom, ENOBUFS,      10055},
    {"no way to a network",  SocketError::kBroken,      kFails,  kNever,  ENETUNREACH,  10051},
    {"process is full",      SocketError::kBroken,      kNever,  kNoRoom, EMFILE,       10024},
    {"no known number",      SocketError::kBroken,      kFails,  kNoRoom, 9999,         9999},
    // clang-format on
};

inline int NumberOf(const SocketErrorCase& c) {
  return IsWin32() ? c.win32 : c.posix;
}

}  // namespace testkit
