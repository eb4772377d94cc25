// A descriptor number that a link has closed may be anybody's a moment later: nothing may be
// written to it. This program's own send and close watch the two.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "00shcode/ftmtsockimpl/engine.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"
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
extern "C" ssize_t send(int socket, const void* data, size_t size, int flags) {
  static const auto next = Next<decltype(&send)>("send");
  if (socket != g_watched) return next(socket, data, size, flags);
  g_writing = true;
  testkit::WaitUntil([] { return g_closed.load(); }, std::chrono::milliseconds(300));
  g_writing = false;
  return static_cast<ssize_t>(size);
}

// Where these two stand, the kit's own send stays out of the program.
extern "C" ssize_t recv(int socket, void* buffer, size_t size, int flags) {
  static const auto next = Next<decltype(&recv)>("recv");
  return next(socket, buffer, size, flags);
}

extern "C" int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  static const auto next = Next<decltype(&poll)>("poll");
  return next(entries, count, timeout_ms);
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
  TestProtocol owner;
  CFTMtSockImpl engine(&owner, 1, 0);
  FTLinkReq req;
  req.link.socket = FTSockListen("127.0.0.1", 0);
  g_watched = static_cast<int>(req.link.socket);
  CFTMtSockOneLinkThrd link(&engine, req);
  std::thread sender([&] { EXPECT_EQ(link.SendOnSocket("x", 1), 1); });
  EXPECT_TRUE(WaitUntil([] { return g_writing.load(); }, std::chrono::seconds(10)));
  link.CloseSocket();
  sender.join();
  EXPECT_TRUE(g_closed);
  EXPECT_FALSE(g_closed_while_writing);
  EXPECT_EQ(link.SendOnSocket("x", 1), -1);
}

}  // namespace
}  // namespace testkit
