// What the system may do to sockets, threads and streams, ordered from outside.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>

#include "00shcode/ftmtsockimpl/link.h"
#include "00shcode/ftmtsockimpl/sock.h"
#include "client/ftwindow.h"
#include "tests/support/posix/faults.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/test_protocol.h"

using namespace testkit;

static std::atomic<int> g_watched{-1};
static std::atomic<bool> g_writing{false};
static std::atomic<bool> g_closed{false};

// Takes long enough for a close to fall into it.
extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  static const auto next = reinterpret_cast<decltype(&sendmsg)>(dlsym(RTLD_NEXT, "sendmsg"));
  if (socket != g_watched) return next(socket, message, flags);
  g_writing = true;
  WaitUntil([] { return g_closed.load(); }, 300ms);
  g_writing = false;
  return 1;
}

extern "C" int close(int fd) {
  static const auto next = reinterpret_cast<decltype(&close)>(dlsym(RTLD_NEXT, "close"));
  if (fd == g_watched) {
    EXPECT_FALSE(g_writing);
    g_closed = true;
  }
  return next(fd);
}

namespace {

TEST(SocketErrors, ConnectingTellsFailureFromWaiting) {
  const std::pair<int, FTConnectResult> cases[] = {{EINPROGRESS, FTConnectResult::kInProgress},
                                                   {EINTR, FTConnectResult::kInProgress},
                                                   {ECONNREFUSED, FTConnectResult::kInProgress},
                                                   {EAGAIN, FTConnectResult::kFailed},
                                                   {ENETUNREACH, FTConnectResult::kFailed}};
  SocketFaults faults;
  for (const auto& [error, result] : cases) {
    faults.Fail(Call::kConnect, error);
    FTSocket socket = kNoSocket;
    EXPECT_EQ(ft::BeginConnect(&socket, 9, "127.0.0.1", nullptr, 0), result) << error;
    FTSockClose(socket);
  }
}

TEST(SocketErrors, AcceptingTellsNobodyThereFromNoRoom) {
  const std::pair<int, std::int32_t> cases[] = {
      {EAGAIN, 0}, {ECONNABORTED, 0}, {EMFILE, -1}, {EINTR, 1}};
  SocketFaults faults;
  const Descriptor listening(static_cast<int>(FTSockListen("127.0.0.1", 0)));
  const Peer caller = Peer::Connect(LocalPort(listening), 5s);
  ASSERT_EQ(FTSockWaitReadable(listening.Get(), 5000), 1);
  FTSocket accepted = kNoSocket;
  for (const auto& [error, result] : cases) {
    faults.Fail(Call::kAccept, error);
    FTSockAddr peer{};
    EXPECT_EQ(FTSockAccept(listening.Get(), &accepted, &peer), result) << error;
  }
  FTSockClose(accepted);
}

// A descriptor number that a link has closed may be anybody's a moment later: nothing may be
// written to it.
TEST(SocketReuse, ALinkClosesItsSocketBetweenWritesAndWritesNothingAfterwards) {
  FTEngineState state{
      FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread, FTSpaceReports::kNone, {}, {}};
  TestProtocol protocol;
  FTLinkReq req;
  req.link.socket = FTSockListen("127.0.0.1", 0);
  g_watched = static_cast<int>(req.link.socket);
  CFTLink link(&req, &protocol, &state);
  const platform::ConstBytePiece piece{"x", 1};
  std::thread sender([&] { EXPECT_EQ(link.Send(&piece, 1), 1); });
  EXPECT_TRUE(WaitUntil([] { return g_writing.load(); }, 10s));
  link.CloseSocket();
  sender.join();
  EXPECT_TRUE(g_closed);
  EXPECT_EQ(link.Send(&piece, 1), -1);
  g_watched = -1;
}

TEST(Select, OneWaitServes2048SocketsWithNumbersAbove1023) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit raised{before.rlim_max, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &raised);
  if (before.rlim_max < 4096) GTEST_SKIP() << "4096 descriptors are not allowed";
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  ASSERT_EQ(write(ends[0], "x", 1), 1);
  std::vector<Descriptor> copies;
  FTSockSet readable;
  while (copies.size() < 2048) {
    const int original = copies.size() < 2047 ? ends[0] : ends[1];
    copies.emplace_back(fcntl(original, F_DUPFD_CLOEXEC, 2000));
    ASSERT_TRUE(readable.Add(copies.back().Get())) << copies.size();
  }
  EXPECT_FALSE(readable.Add(ends[0])) << "the set is full";
  EXPECT_EQ(FTSockSelect(&readable, nullptr, 5000), 1);
  EXPECT_EQ(readable.Members(), std::vector<FTSocket>{copies.back().Get()});
  const FTSocket closed = copies.back().Get();
  copies.clear();
  FTSockSet gone;
  gone.Add(closed);
  EXPECT_EQ(FTSockSelect(&gone, nullptr, 0), -1) << "a closed number is not ready";
  EXPECT_TRUE(gone.Members().empty());
  EXPECT_EQ(FTSockWaitReadable(closed, 0), 0);
  for (const int end : ends) close(end);
  setrlimit(RLIMIT_NOFILE, &before);
}

// Neither interruptions nor a waker that could not be made end a wait early.
TEST(Wait, LastsForTheTimeGivenWithoutDescriptorsAndWithInterruptions) {
  platform::Waker first;  // whatever is made only once is made
  const DescriptorLimit none;
  EXPECT_EQ(FTSockListen("127.0.0.1", 0), kNoSocket);
  platform::Waker waker;
  waker.Wake();
  SocketFaults faults;
  faults.Fail(Call::kPoll, EINTR, 5);
  const auto start = steady_clock::now();
  EXPECT_FALSE(platform::WaitForSocket(kNoSocket, platform::Readiness::kReadable, 200, &waker));
  EXPECT_GE(steady_clock::now() - start, 199ms);
  EXPECT_EQ(faults.Pending(), 0U);
}

// A host may have closed its standard streams. What is written to one of them must not meet a link.
TEST(Descriptors, AreNeverThoseOfStandardStreams) {
  const Descriptor kept(dup(STDIN_FILENO));
  close(STDIN_FILENO);
  const std::uint32_t window = FTCreateWindow();
  const platform::Waker waker;
  const Descriptor socket(platform::OpenTcpSocket());
  for (const auto number : {FTGetWindowFd(window), int(waker.Signal()), socket.Get()}) {
    EXPECT_GT(number, STDERR_FILENO);
  }
  dup2(kept.Get(), STDIN_FILENO);
  FTDestroyWindow(window);
}

struct StackMeasurer : CMyThread {
  std::int32_t OnEnterThread() override {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &m_bytes);
    pthread_attr_destroy(&attributes);
    return CMyThread::OnEnterThread() - 1;
  }
  std::size_t m_bytes = 0;
};

TEST(Threads, HaveTheStackAskedForAndEndBeforeTheirLoopWhenTheyCannotEnter) {
  const StderrCapture err;
  StackMeasurer thread;
  thread.SetThreadName("broken");
  for (const std::size_t bytes : {1000000U, 10000000U}) {
    ASSERT_EQ(thread.StartThread(static_cast<std::int32_t>(bytes)), 0);
    thread.WaitThreadExit();
    EXPECT_GE(thread.m_bytes, bytes);
    EXPECT_LT(thread.m_bytes, 5 * bytes) << "up to four times as much is left from other threads";
  }
  const std::string line = "OnEnterThread[broken] return failed, will exit now.";
  EXPECT_EQ(err.Count(",mytoolkit.cp,2945,-2,>-1: " + line), 2) << err.Text();
}

[[noreturn]] void WriteToABrokenPipe() {
  int ends[2];
  if (pipe(ends) != 0) std::_Exit(2);
  close(ends[0]);
  dup2(ends[1], STDERR_FILENO);
  CMyThread().WriteLog("file.cpp", 1, -1, "nobody will read this\n");
  sigset_t pending;
  sigpending(&pending);
  std::_Exit(sigismember(&pending, SIGPIPE) == 0 ? 0 : 3);
}

TEST(LogDeathTest, ALineToAPipeWithoutAReaderEndsNobody) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(WriteToABrokenPipe(), testing::ExitedWithCode(0), "");
}

}  // namespace
