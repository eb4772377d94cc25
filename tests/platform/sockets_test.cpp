// Sockets as the engine uses them, the same on every system.
#include <gtest/gtest.h>

#include <cerrno>
#include <future>

#include "00shcode/ftmtsockimpl/sock.h"
#include "tests/support/process.h"
#include "tests/support/servers.h"

namespace {

using namespace testkit;

TEST(SocketErrors, EveryNumberHasItsMeaning) {
  using E = platform::SocketError;
  const std::tuple<E, int, int> cases[] = {{E::kNone, 0, 0},
                                           {E::kWouldBlock, EAGAIN, 10035},
                                           {E::kInProgress, EINPROGRESS, 10036},
                                           {E::kInterrupted, EINTR, 10004},
                                           {E::kRefused, ECONNREFUSED, 10061},
                                           {E::kAborted, ECONNABORTED, 10053},
                                           {E::kAborted, EPROTO, 10053},
                                           {E::kBroken, ECONNRESET, 10054}};
  for (const auto& [meaning, posix, win32] : cases) {
    EXPECT_EQ(platform::MeaningOf(!kFailedConnectsAreWritable ? win32 : posix), meaning) << posix;
  }
}

Descriptor LinkTo(const ScriptedServer& server, const char* local_address = nullptr) {
  FTSocket socket = kNoSocket;
  ft::BeginConnect(&socket, server.Port(), server.Host(), local_address, 0);
  EXPECT_EQ(FTSockWaitWritable(socket, 5000), 1);
  return Descriptor(static_cast<int>(socket));
}

void ExpectReadyForTheEngine(const Descriptor& socket) {
  EXPECT_TRUE(IsNonBlocking(socket));
  EXPECT_FALSE(IsInherited(socket)) << "by child processes";
  EXPECT_FALSE(DelaysSmallWrites(socket));
}

// A link to a server that the test plays.
class SockLink : public ::testing::Test {
 protected:
  FTSocket Socket() const { return m_socket.Get(); }

  ScriptedServer m_server;
  Descriptor m_socket = LinkTo(m_server);
  Peer m_peer = m_server.Accept(5s);
};

TEST_F(SockLink, IsMadeAsTheEngineNeedsItAndResetWhenItIsClosed) {
  ExpectReadyForTheEngine(m_socket);
  m_socket.Close();
  Peer caller = Peer::Connect(m_server.Port(), 5s);
  m_server.Accept(5s).Reset();
  EXPECT_EQ(m_peer.WaitClosed(5s), caller.WaitClosed(5s)) << "emulated resets are orderly ends";
}

TEST_F(SockLink, BindsItsEndToTextsOfSevenCharactersOrMore) {
  for (const auto& [given, bound] :
       {std::pair("127.11", "127.0.0.1"), std::pair("127.111", "127.0.0.111")}) {
    std::string local;
    FTSockGetAddrs(LinkTo(m_server, given).Get(), &local, nullptr, nullptr, nullptr);
    EXPECT_EQ(local, bound);
  }
}

// Each end of a link may be named by its parts, as everywhere.
TEST(ParseAddress, UnderstandsNumericAddressesAlone) {
  const char* const cases[][2] = {{"127.1", "127.0.0.1"},    {"10.1.258", "10.1.1.2"},
                                  {"16909060", "1.2.3.4"},   {"0x7f.1", "127.0.0.1"},
                                  {"010.0.0.1", "8.0.0.1"},  {"0.0.0.0", "0.0.0.0"},
                                  {"1.2.3.4\r\n", "1.2.3.4"}};
  for (const auto& [text, dotted] : cases) {
    FTSockAddr address{};
    std::string found;
    FTSockInitAddr(&address, 80, text, platform::kFamilyInet);
    EXPECT_EQ(FTSockAddrToStr(&address, nullptr, &found, nullptr), 0);
    EXPECT_EQ(found, dotted) << text;
  }
  for (const char* text : {"localhost", "127.0.0.1.1", "256.1.1.1", "1.2.3.256", "1.16777216", "",
                           "127.0.0.1x", "127..1", "08.1", "-1", " 1", "4294967296", "1."}) {
    EXPECT_EQ(platform::ParseAddress(text), platform::kNoAddress) << text;
  }
}

// A waker ends the wait that is under way and those that follow, until it is cleared.
TEST_F(SockLink, WaitsOfAnyKindEndWhenAWakerWakesUntilItIsCleared) {
  using platform::Readiness;
  platform::Waker waker;
  FTSockSet readable;
  readable.Add(Socket());
  auto waiting = std::async(std::launch::async, [&] {
    return FTSockWaitReadable(Socket(), -1, &waker) + FTSockSelect(&readable, nullptr, -1, &waker);
  });
  EXPECT_EQ(waiting.wait_for(100ms), std::future_status::timeout);
  waker.Wake();
  waker.Wake();
  EXPECT_EQ(waiting.get(), 0) << "no socket was ready";
  EXPECT_FALSE(platform::WaitForSocket(kNoSocket, Readiness::kReadable, -1, &waker));
  waker.Clear();
  const auto start = steady_clock::now();
  EXPECT_FALSE(platform::WaitForSocket(kNoSocket, Readiness::kReadable, 100, &waker));
  EXPECT_GE(steady_clock::now() - start, 99ms);
  EXPECT_EQ(FTSockWaitWritable(Socket(), 0, &waker), 1);
}

// A server that closed its links first would otherwise wait minutes for its own port.
TEST(Listen, AcceptsUntilNobodyWaitsAndTakesItsPortAgainAtOnce) {
  platform::StartSockets();
  Descriptor listening(static_cast<int>(FTSockListen("127.0.0.1", 0)));
  ExpectReadyForTheEngine(listening);
  const std::uint16_t port = LocalPort(listening);
  const std::size_t before = CountDescriptors();
  EXPECT_EQ(FTSockListen("127.0.0.1", port), kNoSocket);
  EXPECT_EQ(CountDescriptors(), before);
  FTSocket accepted = kNoSocket;
  FTSockAddr address{};
  EXPECT_EQ(FTSockAccept(listening.Get(), &accepted, &address), 0);
  Peer caller = Peer::Connect(port, 5s);
  ASSERT_EQ(FTSockWaitReadable(listening.Get(), 5000), 1);
  ASSERT_EQ(FTSockAccept(listening.Get(), &accepted, &address), 1);
  Descriptor link(static_cast<int>(accepted));
  ExpectReadyForTheEngine(link);

  listening.Close();
  listening = Descriptor(static_cast<int>(FTSockListen("127.0.0.1", port)));
  EXPECT_NE(listening.Get(), kNoSocket) << "with a link of it still up";
  link.Close();
  EXPECT_EQ(caller.WaitClosed(5s), LinkEnd::kOrderly);
}

}  // namespace
