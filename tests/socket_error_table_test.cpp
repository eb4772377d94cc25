// What the engine makes of the system's socket errors. The situations and their meanings hold for
// every backend; a backend adds its own column of numbers.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>

#include "00shcode/ftmtsockimpl/sock.h"
#include "platform/platform.h"
#include "tests/support/peer.h"

namespace {

// The errno value with which the next call fails; 0: it is carried out.
std::atomic<int> g_connect_error{0};
std::atomic<int> g_accept_error{0};

bool Fails(std::atomic<int>* error) {
  const int ordered = error->exchange(0);
  if (ordered != 0) errno = ordered;
  return ordered != 0;
}

}  // namespace

// These stand before the C library's functions of their names.
extern "C" int connect(int socket, const sockaddr* address, socklen_t length) {
  static const auto next = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
  return Fails(&g_connect_error) ? -1 : next(socket, address, length);
}

extern "C" int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  static const auto next = reinterpret_cast<decltype(&accept4)>(dlsym(RTLD_NEXT, "accept4"));
  return Fails(&g_accept_error) ? -1 : next(socket, address, length, flags);
}

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

constexpr struct {
  const char* situation;
  SocketError meaning;
  std::int32_t connecting;
  std::int32_t accepting;
  int posix;
} kCases[] = {
    // clang-format off
    {"nothing possible now", SocketError::kWouldBlock,  kFails,  kNobody, EAGAIN},
    {"connect goes on",      SocketError::kInProgress,  kGoesOn, kNever,  EINPROGRESS},
    {"interrupted",          SocketError::kInterrupted, kGoesOn, kAgain,  EINTR},
    {"nobody listens",       SocketError::kRefused,     kGoesOn, kNever,  ECONNREFUSED},
    {"caller gave up",       SocketError::kAborted,     kNever,  kNobody, ECONNABORTED},
    {"caller gave up oddly", SocketError::kAborted,     kNever,  kNobody, EPROTO},
    {"reset by the peer",    SocketError::kBroken,      kNever,  kNever,  ECONNRESET},
    {"write to a dead peer", SocketError::kBroken,      kNever,  kNever,  EPIPE},
    {"no buffers",           SocketError::kBroken,      kFails,  kNoRoom, ENOBUFS},
    {"no way to a network",  SocketError::kBroken,      kFails,  kNever,  ENETUNREACH},
    {"process is full",      SocketError::kBroken,      kNever,  kNoRoom, EMFILE},
    {"no known number",      SocketError::kBroken,      kFails,  kNoRoom, 9999},
    // clang-format on
};

TEST(SocketErrorTable, EveryNumberHasItsMeaning) {
  EXPECT_EQ(platform::MeaningOf(0), SocketError::kNone);
  for (const auto& c : kCases) EXPECT_EQ(platform::MeaningOf(c.posix), c.meaning) << c.situation;
}

TEST(SocketErrorTable, ConnectingTellsFailureFromWaiting) {
  for (const auto& c : kCases) {
    if (c.connecting == kNever) continue;
    g_connect_error = c.posix;
    FTSocket socket = kNoSocket;
    EXPECT_EQ(BeginConnect(&socket, 9, "127.0.0.1", nullptr, 0), c.connecting) << c.situation;
    FTSockClose(socket);
  }
}

TEST(SocketErrorTable, AcceptingTellsNobodyThereFromNoRoom) {
  std::uint16_t port = 0;
  const FTSocket listening = FTSockListen("127.0.0.1", 0);
  FTSockGetAddrs(listening, nullptr, &port, nullptr, nullptr);
  for (const auto& c : kCases) {
    if (c.accepting == kNever) continue;
    const Peer caller = Peer::Connect(port, 5s);
    ASSERT_EQ(FTSockWaitReadable(listening, 5000), 1);
    g_accept_error = c.posix;
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
