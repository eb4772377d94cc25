// What the engine makes of the system's socket errors. The situations and their meanings hold for
// every backend; each has a column of numbers.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>

#include "00shcode/ftmtsockimpl/sock.h"
#include "platform/platform.h"
#include "tests/support/failing_calls.h"
#include "tests/support/peer.h"
#include "tests/support/socket_traits.h"

namespace {

using namespace testkit;
using namespace std::chrono_literals;
using platform::SocketError;

constexpr std::int32_t kNever = 99;  // not an error of this call
// What BeginConnect makes of it.
constexpr std::int32_t kGoesOn = kConnectInProgress;
constexpr std::int32_t kFails = kConnectFailed;
// What FTSockAccept makes of it.
constexpr std::int32_t kNoRoom = -1;
constexpr std::int32_t kNobody = 0;
constexpr std::int32_t kAgain = 1;  // calls again, and somebody is there

struct Case {
  const char* situation;
  SocketError meaning;
  std::int32_t connecting;
  std::int32_t accepting;
  int posix;  // 0: has another meaning there, or none
  int win32;
};

constexpr Case kCases[] = {
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

int NumberOf(const Case& c) {
  return IsWin32() ? c.win32 : c.posix;
}

TEST(SocketErrorTable, EveryNumberHasItsMeaning) {
  EXPECT_EQ(platform::MeaningOf(0), SocketError::kNone);
  for (const Case& c : kCases) {
    if (NumberOf(c) == 0) continue;
    EXPECT_EQ(platform::MeaningOf(NumberOf(c)), c.meaning) << c.situation;
  }
}

TEST(SocketErrorTable, ConnectingTellsFailureFromWaiting) {
  platform::StartSockets();
  for (const Case& c : kCases) {
    if (c.connecting == kNever || NumberOf(c) == 0) continue;
    FailNextConnect(NumberOf(c));
    FTSocket socket = kNoSocket;
    EXPECT_EQ(BeginConnect(&socket, 9, "127.0.0.1", nullptr, 0), c.connecting) << c.situation;
    FTSockClose(socket);
  }
}

TEST(SocketErrorTable, AcceptingTellsNobodyThereFromNoRoom) {
  platform::StartSockets();
  std::uint16_t port = 0;
  const FTSocket listening = FTSockListen("127.0.0.1", 0);
  FTSockGetAddrs(listening, nullptr, &port, nullptr, nullptr);
  for (const Case& c : kCases) {
    if (c.accepting == kNever || NumberOf(c) == 0) continue;
    const Peer caller = Peer::Connect(port, 5s);
    ASSERT_EQ(FTSockWaitReadable(listening, 5000), 1);
    FailNextAccept(NumberOf(c));
    FTSocket accepted = kNoSocket;
    FTSockAddr peer{};
    EXPECT_EQ(FTSockAccept(listening, &accepted, &peer), c.accepting) << c.situation;
    if (accepted == kNoSocket) {
      EXPECT_EQ(FTSockAccept(listening, &accepted, &peer), kAgain) << "it waits all the same";
    }
    FTSockClose(accepted);
  }
  FTSockClose(listening);
}

}  // namespace
