// Sockets as the engine uses them, the same on every system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <string>

#include "00shcode/ftmtsockimpl/sock.h"
#include "tests/platform/socket_errors.h"
#include "tests/support/peer.h"
#include "tests/support/process_usage.h"
#include "tests/support/scripted_server.h"
#include "tests/support/socket_io.h"
#include "tests/support/socket_traits.h"
#include "tests/support/wire.h"

namespace {

using namespace testkit;
using namespace std::chrono_literals;
using ::testing::StartsWith;

TEST(SocketErrors, EveryNumberHasItsMeaning) {
  EXPECT_EQ(platform::MeaningOf(0), SocketError::kNone);
  for (const SocketErrorCase& c : kSocketErrors) {
    if (NumberOf(c) == 0) continue;
    EXPECT_EQ(platform::MeaningOf(NumberOf(c)), c.meaning) << c.situation;
  }
}

constexpr std::int32_t kWaitMs = 5000;

// What became of a connect.
struct Connect {
  FTConnectResult result;
  bool connected;
  Descriptor socket;
};

Connect TryConnect(const char* address, std::uint16_t port, const char* local_address = nullptr,
                   std::uint16_t local_port = 0) {
  FTSocket socket = 12345;
  const FTConnectResult result =
      ft::BeginConnect(&socket, port, address, local_address, local_port);
  EXPECT_EQ(result == FTConnectResult::kFailed, socket == kNoSocket);
  FTSockWaitWritable(socket, kWaitMs);
  std::string address_text;
  std::uint16_t port_found = 0;
  const bool connected =
      FTSockTakeConnected(socket, &address_text, &port_found, &address_text, &port_found) == 1;
  EXPECT_TRUE(!connected || port_found == port);
  return {result, connected, Descriptor(static_cast<int>(socket))};
}

// "its address, peer's address:peer's port"
std::string EndsOf(const Descriptor& socket) {
  std::string local;
  std::string peer;
  std::uint16_t peer_port = 0;
  FTSockGetAddrs(socket.Get(), &local, nullptr, &peer, &peer_port);
  return local + ", " + peer + ":" + std::to_string(peer_port);
}

Descriptor ListenAt(const char* address, std::uint16_t port = 0) {
  platform::StartSockets();
  return Descriptor(static_cast<int>(FTSockListen(address, port)));
}

void ExpectReadyForTheEngine(const Descriptor& socket) {
  EXPECT_TRUE(IsNonBlocking(socket));
  EXPECT_FALSE(IsInherited(socket)) << "by child processes";
  EXPECT_FALSE(DelaysSmallWrites(socket));
}

// A link to a server that the test plays.
class SockLink : public ::testing::Test {
 protected:
  FTSocket Socket() const { return m_connect.socket.Get(); }

  ScriptedServer m_server;
  Connect m_connect = TryConnect(m_server.Host(), m_server.Port());
  Peer m_peer = m_server.Accept(5s);
};

TEST_F(SockLink, IsMadeAsTheEngineNeedsItAndResetWhenItIsClosed) {
  ASSERT_TRUE(m_connect.connected);
  ExpectReadyForTheEngine(m_connect.socket);
  EXPECT_EQ(SendBuffer(m_connect.socket), 65536);
  EXPECT_EQ(ReceiveBuffer(m_connect.socket), 65536);
  EXPECT_EQ(EndsOf(m_connect.socket), "127.0.0.1, 127.0.0.1:" + std::to_string(m_server.Port()));
  m_connect.socket.Close();
  EXPECT_EQ(m_peer.WaitClosed(5s), EndOfResetLinks());
}

TEST_F(SockLink, WaitsForTheTimeGiven) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(FTSockWaitReadable(Socket(), 200), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 199ms);

  auto waiting =
      std::async(std::launch::async, [this] { return FTSockWaitReadable(Socket(), -1); });
  EXPECT_EQ(waiting.wait_for(300ms), std::future_status::timeout);
  m_peer.StopSending();
  EXPECT_EQ(waiting.get(), 1) << "the end is something to read";

  const Bytes block = PatternBody(1000000);
  EXPECT_EQ(FTSockWaitWritable(Socket(), -1), 1);
  std::int32_t sent = 0;
  do {
    const platform::ConstBytePiece piece{block.data(), 1000000};
    sent += FTSockSend(Socket(), &piece, 1);
  } while (FTSockWaitWritable(Socket(), 100) == 1);
  EXPECT_TRUE(m_peer.ReceiveExactly(static_cast<std::size_t>(sent), 5s));
  EXPECT_EQ(FTSockWaitWritable(Socket(), kWaitMs), 1);
}

TEST(BeginConnect, FailsAtOnceWhereNoLinkCanCome) {
  const struct {
    const char* address;
    std::uint16_t port = 80;
    const char* local_address = nullptr;
  } cases[] = {{"0.0.0.0"},         {nullptr},
               {"localhost"},       {"127.0.0.1.1"},
               {"127.0.0.1", 0},    {"127.0.0.1", 80, "localhost"},
               {"255.255.255.255"}, {"127.0.0.1", 80, "192.0.2.1"}};  // an address of nobody's
  const std::size_t before = CountDescriptors();
  for (const auto& c : cases) {
    EXPECT_EQ(TryConnect(c.address, c.port, c.local_address).result, FTConnectResult::kFailed)
        << (c.address == nullptr ? "null" : c.address) << ":" << c.port;
  }
  EXPECT_EQ(FTSockListen("192.0.2.1", 0), kNoSocket);
  EXPECT_EQ(FTSockListen("localhost", 0), kNoSocket);
  EXPECT_EQ(CountDescriptors(), before);
}

TEST(BeginConnect, BindsTheLocalEndToTextsOfSevenCharactersOrMore) {
  ScriptedServer server;
  const auto local_end = [&](const char* address) {
    const Connect connect = TryConnect(server.Host(), server.Port(), address);
    return connect.connected ? EndsOf(connect.socket) : "not connected";
  };
  EXPECT_THAT(local_end("127.11"), StartsWith("127.0.0.1,")) << "left to the system";
  EXPECT_THAT(local_end("127.111"), StartsWith("127.0.0.111,"));
  EXPECT_THAT(local_end("127.200.1.1"), StartsWith("127.200.1.1,"));
}

// Each end of a link may be named by its parts, as everywhere.
TEST(ParseAddress, UnderstandsNumericAddressesAlone) {
  const struct {
    const char* text;
    const char* dotted;
  } cases[] = {{"127.0.0.1", "127.0.0.1"}, {"127.1", "127.0.0.1"},  {"10.1.258", "10.1.1.2"},
               {"16909060", "1.2.3.4"},    {"0x7f.1", "127.0.0.1"}, {"0177.0.0.1", "127.0.0.1"},
               {"0.0.0.0", "0.0.0.0"}};
  for (const auto& c : cases) {
    FTSockAddr address{};
    std::string text;
    FTSockInitAddr(&address, 80, c.text, platform::kFamilyInet);
    EXPECT_EQ(FTSockAddrToStr(&address, nullptr, &text, nullptr), 0);
    EXPECT_EQ(text, c.dotted) << c.text;
  }
  for (const char* text : {"localhost", "127.0.0.1.1", "256.1.1.1", "1.2.3.256", "1.16777216", "",
                           "127.0.0.1x", "127..1", "08.1", "-1", " 1", "4294967296", "1."}) {
    EXPECT_EQ(platform::ParseAddress(text), platform::kNoAddress) << text;
  }
}

// A waker ends the wait that is under way and those that follow, until it is cleared.
TEST(Waker, EndsWaitsOfAnyKindUntilItIsCleared) {
  platform::StartSockets();
  platform::Waker waker;
  ASSERT_TRUE(waker.IsUsable());
  ScriptedServer server;
  const Connect connect = TryConnect(server.Host(), server.Port());
  const FTSocket socket = connect.socket.Get();
  FTSockSet readable;
  readable.Add(socket);
  auto waiting = std::async(std::launch::async, [&] {
    return FTSockWaitReadable(socket, -1, &waker) + FTSockSelect(&readable, nullptr, -1, &waker);
  });
  EXPECT_EQ(waiting.wait_for(100ms), std::future_status::timeout);
  waker.Wake();
  waker.Wake();
  EXPECT_EQ(waiting.get(), 0) << "no socket was ready";
  EXPECT_FALSE(platform::WaitForSocket(kNoSocket, platform::Readiness::kReadable, -1, &waker));
  waker.Clear();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(platform::WaitForSocket(kNoSocket, platform::Readiness::kReadable, 100, &waker));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 99ms);
  EXPECT_EQ(FTSockWaitWritable(socket, 0, &waker), 1);
}

// A server that closed its links first would otherwise wait minutes for its own port.
TEST(Listen, AcceptsUntilNobodyWaitsAndTakesItsPortAgainAtOnce) {
  Descriptor listening = ListenAt("127.0.0.1");
  ExpectReadyForTheEngine(listening);
  const std::uint16_t port = LocalPort(listening);
  EXPECT_EQ(FTSockListen("127.0.0.1", port), kNoSocket);
  FTSocket accepted = kNoSocket;
  FTSockAddr address{};
  EXPECT_EQ(FTSockAccept(listening.Get(), &accepted, &address), 0);
  Peer caller = Peer::Connect(port, 5s);
  ASSERT_EQ(FTSockWaitReadable(listening.Get(), kWaitMs), 1);
  ASSERT_EQ(FTSockAccept(listening.Get(), &accepted, &address), 1);
  Descriptor link(static_cast<int>(accepted));
  ExpectReadyForTheEngine(link);
  EXPECT_EQ(FTSockAccept(listening.Get(), &accepted, &address), 0);

  listening.Close();
  EXPECT_NE(ListenAt("127.0.0.1", port).Get(), kNoSocket) << "with a link of it still up";
  link.Close();
  EXPECT_EQ(caller.WaitClosed(5s), LinkEnd::kOrderly);
  caller.Close();
  EXPECT_NE(ListenAt("127.0.0.1", port).Get(), kNoSocket);
}

}  // namespace
