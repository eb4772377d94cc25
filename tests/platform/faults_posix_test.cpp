// What the system may do to sockets, threads and streams, ordered from outside.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "00shcode/ftmtsockimpl/sock.h"
#include "00shcode/mytoolkit/thread.h"
#include "tests/platform/socket_errors.h"
#include "tests/support/posix/faults.h"
#include "tests/support/scripted_server.h"
#include "tests/support/socket_io.h"

namespace {

using namespace testkit;
using namespace std::chrono_literals;

TEST(SocketErrors, ConnectingTellsFailureFromWaiting) {
  SocketFaults faults;
  for (const SocketErrorCase& c : kSocketErrors) {
    if (c.connecting == kNever || c.posix == 0) continue;
    faults.Fail(Call::kConnect, c.posix);
    FTSocket socket = kNoSocket;
    const FTConnectResult result = ft::BeginConnect(&socket, 9, "127.0.0.1", nullptr, 0);
    EXPECT_EQ(static_cast<std::int32_t>(result), c.connecting) << c.situation;
    FTSockClose(socket);
  }
}

TEST(SocketErrors, AcceptingTellsNobodyThereFromNoRoom) {
  SocketFaults faults;
  std::uint16_t port = 0;
  const FTSocket listening = FTSockListen("127.0.0.1", 0);
  FTSockGetAddrs(listening, nullptr, &port, nullptr, nullptr);
  for (const SocketErrorCase& c : kSocketErrors) {
    if (c.accepting == kNever || c.posix == 0) continue;
    const Peer caller = Peer::Connect(port, 5s);
    ASSERT_EQ(FTSockWaitReadable(listening, 5000), 1);
    faults.Fail(Call::kAccept, c.posix);
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

constexpr std::int32_t kWaitMs = 5000;

Descriptor ConnectTo(const ScriptedServer& server) {
  FTSocket socket = kNoSocket;
  ft::BeginConnect(&socket, server.Port(), server.Host(), nullptr, 0);
  EXPECT_EQ(FTSockWaitWritable(socket, kWaitMs), 1);
  return Descriptor(static_cast<int>(socket));
}

class SockLinkOnPosix : public ::testing::Test {
 protected:
  FTSocket Socket() const { return m_socket.Get(); }

  ScriptedServer m_server;
  Descriptor m_socket = ConnectTo(m_server);
  Peer m_peer = m_server.Accept(5s);
};

volatile std::sig_atomic_t g_signals = 0;

TEST_F(SockLinkOnPosix, SendsToADeadPeerWithoutASignal) {
  const auto before = std::signal(SIGPIPE, [](int) { g_signals = g_signals + 1; });
  m_peer.Reset();
  EXPECT_EQ(FTSockWaitReadable(Socket(), kWaitMs), 1);
  const platform::ConstBytePiece piece{"into the void", 13};
  for (int i = 0; i < 3; ++i) EXPECT_EQ(FTSockSend(Socket(), &piece, 1), -1);
  EXPECT_EQ(g_signals, 0);
  std::signal(SIGPIPE, before);
}

TEST_F(SockLinkOnPosix, OneWaitServes2048SocketsWithNumbersAbove1023) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit raised{std::max<rlim_t>(4096, before.rlim_cur), before.rlim_max};
  if (setrlimit(RLIMIT_NOFILE, &raised) != 0) GTEST_SKIP() << "4096 descriptors are not allowed";
  const Descriptor busy = ConnectTo(m_server);
  m_server.Accept(5s).SendRaw("x");
  std::vector<Descriptor> copies;
  FTSockSet readable;
  while (copies.size() < 2048) {
    const FTSocket original = copies.size() < 2047 ? Socket() : busy.Get();
    copies.emplace_back(fcntl(static_cast<int>(original), F_DUPFD_CLOEXEC, 2000));
    ASSERT_TRUE(readable.Add(copies.back().Get())) << copies.size();
  }
  EXPECT_FALSE(readable.Add(Socket())) << "the set is full";
  EXPECT_EQ(FTSockSelect(&readable, nullptr, kWaitMs), 1);
  EXPECT_EQ(readable.Members(), std::vector<FTSocket>{copies.back().Get()});
  const platform::ConstBytePiece piece{"abc", 3};
  EXPECT_EQ(FTSockSend(copies.front().Get(), &piece, 1), 3);
  const FTSocket closed = copies.back().Get();
  copies.clear();
  FTSockSet gone;
  gone.Add(closed);
  EXPECT_EQ(FTSockSelect(&gone, nullptr, 0), -1) << "a closed number is not ready";
  EXPECT_EQ(FTSockWaitReadable(closed, 0), 0);
  setrlimit(RLIMIT_NOFILE, &before);
}

// Five interruptions do not make a wait longer, nor shorter.
TEST_F(SockLinkOnPosix, WaitsForTheTimeGivenWhateverSignalsCome) {
  SocketFaults faults;
  faults.Fail(Call::kPoll, EINTR, 5);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(FTSockWaitReadable(Socket(), 200), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 199ms);
  EXPECT_EQ(faults.Pending(), 0U);
}

TEST(Descriptors, WithoutAnyNothingIsMadeAndWaitsRunToTheirLimits) {
  platform::Waker first;  // whatever is made only once is made
  FTSocket socket = 5;
  const DescriptorLimit none(0);
  EXPECT_EQ(ft::BeginConnect(&socket, 80, "127.0.0.1", nullptr, 0), FTConnectResult::kFailed);
  EXPECT_EQ(FTSockListen("127.0.0.1", 0), kNoSocket);
  platform::Waker waker;
  EXPECT_FALSE(waker.IsUsable());
  waker.Wake();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(platform::WaitForSocket(kNoSocket, platform::Readiness::kReadable, 50, &waker));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 49ms);
}

class StackMeasurer : public CMyThread {
 public:
  std::size_t m_bytes = 0;

 protected:
  std::int32_t OnEnterThread() override {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &m_bytes);
    pthread_attr_destroy(&attributes);
    return -1;
  }
};

TEST(Threads, HaveTheStackAskedForAndMayBeRefused) {
  StackMeasurer thread;
  const std::int32_t before = CMyThread::GetThreadCount();
  {
    const ThreadLimit none(0);
    EXPECT_EQ(thread.StartThread(0), -1);
  }
  thread.WaitThreadExit();
  EXPECT_EQ(CMyThread::GetThreadCount(), before);
  for (const std::int32_t bytes : {1000000, 3000000}) {
    ASSERT_EQ(thread.StartThread(bytes), 0);
    thread.WaitThreadExit();
    EXPECT_GE(thread.m_bytes, static_cast<std::size_t>(bytes));
    EXPECT_LT(thread.m_bytes, static_cast<std::size_t>(bytes) + 1000000);
  }
}

[[noreturn]] void WriteToABrokenPipe() {
  int ends[2];
  if (pipe(ends) != 0) std::_Exit(2);
  close(ends[0]);
  dup2(ends[1], STDERR_FILENO);
  CMyThread log;
  log.WriteLog("file.cpp", 1, -1, "nobody will read this\n");
  sigset_t pending;
  sigpending(&pending);
  std::_Exit(sigismember(&pending, SIGPIPE) == 0 ? 0 : 3);
}

TEST(LogDeathTest, ALineToAPipeWithoutAReaderEndsNobody) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(WriteToABrokenPipe(), testing::ExitedWithCode(0), "");
}

}  // namespace
