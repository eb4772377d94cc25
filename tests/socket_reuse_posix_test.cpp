// A descriptor number that the receive thread has closed may be anybody's a moment later: the send
// thread must not write to it. This program's own send and close watch the two threads.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/support/scripted_server.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace {

using namespace std::chrono_literals;

std::atomic<int> g_watched{-1};
std::atomic<int> g_writing{0};
std::atomic<bool> g_close_is_due{false};
std::atomic<bool> g_closed{false};
std::atomic<bool> g_overlapped{false};
std::atomic<int> g_successor{-1};  // takes the number over as soon as it is free

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// A write that takes long enough for a close to fall into it.
void LingerInWrite() {
  const auto end = std::chrono::steady_clock::now() + 300ms;
  while (g_close_is_due && !g_closed && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(1ms);
  }
}

}  // namespace

extern "C" ssize_t send(int socket, const void* data, size_t size, int flags) {
  static const auto next = Next<decltype(&send)>("send");
  if (socket != g_watched || g_closed) return next(socket, data, size, flags);
  ++g_writing;
  LingerInWrite();
  const ssize_t result = next(socket, data, size, flags);
  --g_writing;
  return result;
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
  if (fd != g_watched || g_closed) return next(fd);
  if (g_writing > 0) g_overlapped = true;
  if (dup2(g_successor, fd) < 0) return next(fd);  // closes it and takes its number in one step
  g_closed = true;
  return 0;
}

namespace testkit {
namespace {

// A link that is closed on request while its receive thread is in a callback is closed by that
// thread at once, and its send thread may be writing just then.
TEST(SocketReuse, ANumberThatWasClosedIsNeverWrittenTo) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair), 0);
  ScriptedServer server;
  TestProtocol protocol(EventMode::kDirect);
  protocol.On().received = [&](const FTLinkInfo& link, CFTBuffer*, std::int32_t*) {
    g_close_is_due = true;
    EXPECT_TRUE(WaitUntil([] { return g_writing > 0; }, 10s));
    protocol.CloseLink(link.link_id, 0);
    EXPECT_TRUE(WaitUntil([&] { return protocol.IsLinkUp(link.link_id) == 0; }, 10s));
  };
  protocol.Start();
  auto link = protocol.OpenLink(server);
  g_successor = pair[0];
  g_watched = static_cast<int>(link.link.socket);
  link.peer.SendPackage("close me");
  ASSERT_TRUE(WaitUntil([] { return g_close_is_due.load(); }, 10s));
  for (int i = 0; i < 10; ++i) protocol.Send(link.id, PatternBody(20000));
  EXPECT_EQ(protocol.WaitClosed(), 6);
  EXPECT_TRUE(g_closed);
  protocol.Stop();
  EXPECT_FALSE(g_overlapped) << "closed while a write was under way";
  char byte;
  EXPECT_EQ(recv(pair[1], &byte, 1, 0), -1) << "something was written to the number's new owner";
  ::close(g_watched.exchange(-1));
  ::close(pair[0]);
  ::close(pair[1]);
}

}  // namespace
}  // namespace testkit
