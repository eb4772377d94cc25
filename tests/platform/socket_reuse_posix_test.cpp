// A descriptor number that a link has closed may be anybody's a moment later: nothing may be
// written to it. This program's own sendmsg and close watch the two.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "00shcode/ftmtsockimpl/link.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace {

std::atomic<int> g_watched{-1};
std::atomic<bool> g_writing{false};
std::atomic<bool> g_closed{false};
std::atomic<bool> g_closed_while_writing{false};

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// Takes long enough for a close to fall into it.
extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  static const auto next = Next<decltype(&sendmsg)>("sendmsg");
  if (socket != g_watched) return next(socket, message, flags);
  g_writing = true;
  testkit::WaitUntil([] { return g_closed.load(); }, std::chrono::milliseconds(300));
  g_writing = false;
  return 1;
}

extern "C" int close(int fd) {
  static const auto next = Next<decltype(&close)>("close");
  if (fd == g_watched) {
    g_closed_while_writing = g_writing.load();
    g_closed = true;
  }
  return next(fd);
}

namespace testkit {
namespace {

TEST(SocketReuse, ALinkClosesItsSocketBetweenWritesAndWritesNothingAfterwards) {
  FTEngineState state{FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread,
                      FTSpaceReports::kNone};
  TestProtocol protocol;
  FTLinkReq req;
  req.link.socket = FTSockListen("127.0.0.1", 0);
  g_watched = static_cast<int>(req.link.socket);
  CFTLink link(&req, &protocol, &state);
  const platform::ConstBytePiece piece{"x", 1};
  std::thread sender([&] { EXPECT_EQ(link.Send(&piece, 1), 1); });
  EXPECT_TRUE(WaitUntil([] { return g_writing.load(); }, std::chrono::seconds(10)));
  link.CloseSocket();
  sender.join();
  EXPECT_TRUE(g_closed);
  EXPECT_FALSE(g_closed_while_writing);
  EXPECT_EQ(link.Send(&piece, 1), -1);
}

}  // namespace
}  // namespace testkit
