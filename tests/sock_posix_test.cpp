#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <vector>

#include "00shcode/ftmtsockimpl/sock.h"
#include "tests/support/scripted_server.h"
#include "tests/support/socket_io.h"

namespace {

using namespace testkit;
using namespace std::chrono_literals;

constexpr std::int32_t kWaitMs = 5000;

Descriptor ConnectTo(const ScriptedServer& server) {
  FTSocket socket = kNoSocket;
  BeginConnect(&socket, server.Port(), server.Host(), nullptr, 0);
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
  for (int i = 0; i < 3; ++i) EXPECT_EQ(FTSockSend(Socket(), "into the void", 13), -1);
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
  EXPECT_EQ(FTSockSend(copies.front().Get(), "abc", 3), 3);
  copies.clear();
  setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
