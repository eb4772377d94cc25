// Requests and answers of one link, seen from both of its ends, and where they are delivered: to
// the window of the moment, to none, to one that is gone.

#include "00shcode/mytoolkit/block_pool.h"
#include "client/comm_thread.h"
#include "tests/support/client_test.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/test_protocol.h"

namespace {

using namespace testkit;

constexpr std::size_t kLargestBody = 5242867;

using ClientRequests = ClientTest;

TEST_F(ClientRequests, RequestsStandOnTheWireAsPackagesAndRefusedOnesLeaveNoTrace) {
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  for (const unsigned int length : {unsigned{INT_MAX} - 11, unsigned{INT_MAX} + 1, UINT_MAX}) {
    EXPECT_EQ(m_client.AskData("x", length), -1) << length;
  }
  EXPECT_EQ(m_client.AskData(nullptr, 10), 0);
  EXPECT_EQ(m_client.AskData(nullptr, 0), 0);
  for (const Bytes& body : {Bytes("abc"), Bytes(), kHeartbeatBody, PatternBody(6000000)}) {
    Bytes data = body;
    EXPECT_EQ(Ask(data), 0);
    std::fill(data.begin(), data.end(), '!');  // the data were copied
    const Bytes package = BuildPackage(body);
    EXPECT_TRUE(peer.ReceiveExactly(package.size(), 10s) == package) << body.size() << " bytes";
  }
}

TEST_F(ClientRequests, AreRefusedWhenTheServerLeavesTooMuchUnread) {
  ScriptedServer server;
  const Peer peer = LinkWith(&server);
  CClientCommThread& client = *g_pClientCommThread;
  const std::int64_t most = CClientCommThread::kMostQueuedBytes;
  while (client.GetQueuedSendBytes() <= most) {
    EXPECT_EQ(Ask("asked"), 0);
    client.SendPkg(client.GetLinkId(), NewNothing(100000000), &ReleaseFTBuffer, FTSendMode::kForced,
                   FTOnRefusal::kRelease, 3);
  }
  EXPECT_EQ(Ask("too much"), -1);
  EXPECT_EQ(m_client.IsOnline(), 1);
}

TEST_F(ClientRequests, HeartbeatsAndDamagedPackagesVanishSilentlyAndForeignMarksDoNot) {
  FastClock fast(20);
  StderrCapture lines;
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  for (const Bytes& other : {Bytes("HB"), Bytes("HBx"), Bytes(), Bytes("\0HB\0", 4)}) {
    peer.SendPackage(kHeartbeatBody);
    peer.SendRaw(BuildHeader(4, CheckSum("good")) + "gOod");
    peer.SendRaw(BuildHeader(0, BigEndian(0xFFFFFFFE)));
    peer.SendRaw(BuildHeader(5, CheckSum("other"), 0xFFFFFFFF) + "other");
    peer.SendPackage(kHeartbeatBody + "more");
    peer.SendPackage(other);
    EXPECT_EQ(m_window.Next(5s), Package("other"));
    EXPECT_EQ(m_window.Next(5s), Package(other));
  }
  EXPECT_EQ(peer.ReceiveExactly(15, 10s), kHeartbeatPackage) << "the client sends its own";
  EXPECT_EQ(lines.Text(), "");
}

// The memory is only said to be there.
TEST_F(ClientRequests, AnApplicationThatKeepsTooMuchGetsOneMoreASecondUntilItReturnsSome) {
  ManualClock clock;
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  void* const kept = ft::AllocBlock(1);
  ft::CountBlock(kept, 256U << 20);
  for (std::uint32_t i = 0; i < 3; ++i) peer.SendPackage(PatternBody(4096, i));
  for (std::uint32_t i = 0; i < 2; ++i) {
    EXPECT_EQ(m_window.Next(300ms), std::nullopt);
    clock.Advance(1000);
    EXPECT_TRUE(m_window.Next(5s) == Package(PatternBody(4096, i)));
  }
  EXPECT_EQ(m_window.Next(300ms), std::nullopt);
  ft::FreeBlock(kept);
  EXPECT_TRUE(m_window.Next(5s) == Package(PatternBody(4096, 2)));
}

TEST_F(ClientRequests, WithoutAWindowPackagesAreQueuedAndInTheEndTheServerWaits) {
  constexpr int kMany = 30;
  const Bytes large = BuildPackage(PatternBody(kLargestBody));
  ScriptedServer server;
  const unsigned int nowhere[][2] = {{0, m_window.Message()}, {m_window.Handle(), 0}};
  for (const auto& [window, message] : nowhere) {
    ASSERT_EQ(LinkClient(&m_client, {At(server)}, window, message), 1);
    Peer peer = server.Accept(5s);
    std::atomic<int> sent{0};
    std::thread sending([&] {
      peer.SendPackage("kept");
      for (; sent < kMany; ++sent) peer.SendRaw(large);
      peer.SendPackage("last");
    });
    EXPECT_FALSE(WaitUntil([&] { return sent == kMany; }, 1s));
    m_client.ChangeReceieveWnd(m_window.Handle(), m_window.Message());
    const auto first = m_window.Next(5s);
    EXPECT_TRUE(first && first->second.size() == kLargestBody) << "what came before stays queued";
    EXPECT_TRUE(m_window.WaitFor(Package("last"), 10s));
    sending.join();
    char* const kept = g_pClientCommThread->PopRecvPkg();
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(Bytes(kept, 8), Bytes("\4\0\0\0kept", 8));
    m_client.FreeBuffer(kept);
    m_client.UnLink();
  }
}

}  // namespace
