// What needs clocks and a system that the test can bend. A request without an answer ends its link.
// The wait is counted in whole seconds of the wall clock and looked at on a timer of the tick
// clock; the tests move each by itself.
#include "00shcode/mytoolkit/clock.h"
#include "client/client_slot.h"
#include "client/comm_thread.h"
#include "tests/support/client_test.h"
#include "tests/support/memory_limit.h"
#include "tests/support/posix/faults.h"

namespace {

using namespace testkit;

constexpr int kTooLongSec = 9;

class ClientFaults : public ClientTest {
 protected:
  // Keeps the link alive with heartbeats and damaged packages, neither of which is an answer.
  std::optional<Notification> NextWithoutAnswer(Peer* peer, std::chrono::milliseconds limit) {
    const auto end = steady_clock::now() + limit;
    try {
      do {
        peer->SendHeartbeat();
        peer->SendRaw(BuildHeader(1, BigEndian(0)) + "x");
        if (auto next = m_window.Next(20ms)) return next;
      } while (steady_clock::now() < end);
      return std::nullopt;
    } catch (const std::runtime_error&) {
      return m_window.Next(5s);  // the link has ended, and the window is about to hear of it
    }
  }

  FastClock m_fast{10};
  ClockShift m_wall;
  ScriptedServer m_server;
};

TEST_F(ClientFaults, WaitEndsWithTheLinkThatItClosed) {
  ScriptedServer second;
  ASSERT_EQ(Link({At(m_server), At(second)}), 1);
  Peer peer = TakeLink(&m_server);
  // A clock far ahead: the seconds run over 32 bits during the wait.
  m_wall.SetWallClock(static_cast<time_t>(INT32_MAX - 5 - platform::WallClockSeconds()));
  EXPECT_EQ(Ask("?"), 0);
  EXPECT_EQ(NextWithoutAnswer(&peer, 500ms), std::nullopt);
  m_wall.SetWallClock(kTooLongSec + 3);
  EXPECT_EQ(NextWithoutAnswer(&peer, 5s), LinkClosed());
  Peer next = TakeLink(&second);
  m_wall.SetWallClock(60);
  EXPECT_EQ(NextWithoutAnswer(&next, 600ms), std::nullopt);
}

TEST_F(ClientFaults, OnlyWhatWasAskedAndNotAnsweredIsWaitedFor) {
  Peer peer = LinkWith(&m_server);
  EXPECT_EQ(m_client.AskData("refused", unsigned{INT_MAX} - 11), -1);
  if (MemoryLimit::kCanBe) {
    const Bytes body(100000, 'x');
    const MemoryLimit limit(1, 1000);
    EXPECT_THROW(Ask(body), std::bad_alloc);
  }
  m_wall.SetWallClock(60);
  EXPECT_EQ(NextWithoutAnswer(&peer, 600ms), std::nullopt);

  for (const char* body : {"one", "two"}) EXPECT_EQ(Ask(body), 0);
  peer.SendPackage("");  // any package is the answer to both
  EXPECT_EQ(m_window.Next(5s), Package(""));
  m_wall.SetWallClock(60);
  EXPECT_EQ(NextWithoutAnswer(&peer, 600ms), std::nullopt);

  const auto before = platform::WallClockSeconds();
  ASSERT_TRUE(WaitUntil([&] { return platform::WallClockSeconds() != before; }, 5s));
  EXPECT_EQ(m_client.AskData(nullptr, 10), 0);  // sends nothing, and waits all the same
  const auto asked = platform::WallClockSeconds();
  m_wall.SetWallClock(8);
  auto ended = NextWithoutAnswer(&peer, 500ms);
  const bool was_in_time = platform::WallClockSeconds() == asked + 8;  // unless the machine is busy
  EXPECT_FALSE(was_in_time && ended) << "eight whole seconds are not too long";
  m_wall.SetWallClock(1);
  EXPECT_EQ(ended ? ended : NextWithoutAnswer(&peer, 5s), LinkClosed());
}

TEST_F(ClientFaults, RequestDuringTheConnectIsLostAndEndsTheConnect) {
  ManualClock clock;
  FullBacklogPort mute;
  ASSERT_EQ(Link({At(mute), At(m_server)}), 1);
  // Until the client's thread has begun to connect there is no link, and requests are refused.
  ASSERT_TRUE(WaitUntil([&] { return Ask("lost") == 0; }, 5s));
  EXPECT_EQ(m_client.IsOnline(), 0);
  m_wall.SetWallClock(kTooLongSec);
  clock.Advance(kOneCheckMs);  // far from the connect's own time-out
  EXPECT_EQ(m_window.Next(5s), ConnectFailed());
  clock.Advance(kOneCheckMs);
  Peer peer = TakeLink(&m_server);
  EXPECT_EQ(Ask("sent"), 0);
  EXPECT_EQ(peer.ReceivePackage(5s), "sent");
}

// The client's own thread, the engine with its three, and two for a link.
TEST_F(ClientFaults, MissingThreadsMakeNeitherLinkNorUnLinkFail) {
  for (int threads = 0; threads < 6; ++threads) {
    const ThreadLimit limit(threads);
    EXPECT_EQ(Link({At(m_server)}), 1);
    const auto failed = [&] { return limit.Refused() > 0 && m_client.IsOnline() == 0; };
    EXPECT_TRUE(WaitUntil(failed, 5s)) << threads;
    EXPECT_EQ(m_client.UnLink(), 0);
  }
}

TEST_F(ClientTest, AMachineThatWakesFindsASilentLinkDeadAtOnce) {
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  ClockShift clock;
  clock.Sleep(36);
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
}

// What a window does not take is kept, and in the end the server waits.
class Backlog : public ClientTest {
 protected:
  static constexpr std::uint32_t kKept = 100;

  static Bytes KeptBody(std::uint32_t i) { return PatternBody(ft::kCountedBodyLen, i); }
  static bool AreReleased() {
    return WaitUntil([] { return ft::CountedBodyBytes() == 0; }, 5s);
  }

  // Brings as many notifications as the window takes, 100 packages behind them, and the link's end.
  void Fill(const ClientWindow& window) {
    ASSERT_EQ(LinkClient(&m_client, {At(m_server)}, window.Handle(), window.Message()), 1);
    Peer peer = m_server.Accept(5s);
    Bytes stream;
    for (std::size_t i = 1; i < platform::kWindowCapacity; ++i) stream += BuildPackage("x");
    for (std::uint32_t i = 0; i < kKept; ++i) stream += BuildPackage(KeptBody(i));
    peer.SendRaw(stream);
    peer.StopSending();
    ASSERT_TRUE(WaitUntil([&] { return Ask("?") == -1; }, 10s));
  }

  ManualClock m_clock;
  ScriptedServer m_server;
  ClientWindow m_next{&m_client, 0x0500};
};

TEST_F(Backlog, FollowsInOrderOnceThereIsRoom) {
  Fill(m_window);
  m_clock.Advance(kOneCheckMs);
  Peer next = m_server.Accept(5s);
  next.SendPackage("next");
  EXPECT_TRUE(m_window.WaitFor(Package(KeptBody(0)), 5s));
  for (std::uint32_t i = 1; i < kKept; ++i) ASSERT_TRUE(m_window.Next(5s) == Package(KeptBody(i)));
  for (const Notification& last : {LinkClosed(), LinkUp(), Package("next")})
    EXPECT_EQ(m_window.Next(5s), last);
}

TEST_F(Backlog, GoesToTheNextWindowBeforeWhatIsNewer) {
  Fill(m_window);
  m_client.ChangeReceieveWnd(m_next.Handle(), m_next.Message());
  for (std::uint32_t i = 0; i < kKept; ++i) ASSERT_TRUE(m_next.Next(5s) == Package(KeptBody(i)));
  EXPECT_EQ(m_next.Next(5s), LinkClosed());
  m_clock.Advance(kOneCheckMs);
  EXPECT_EQ(m_next.Next(5s), LinkUp());
}

TEST_F(Backlog, GoesToTheReceivedPackagesWithoutAWindowAndItsLinkEventsAreDropped) {
  Fill(m_window);
  m_client.ChangeReceieveWnd(0, 0);
  EXPECT_TRUE(AreReleased()) << "the queue has copies";
  for (std::uint32_t i = 0; i < kKept; ++i) {
    const ft::FTBodyPtr body(g_pClientCommThread->PopRecvPkg());
    ASSERT_TRUE(body && Bytes(body.get() + 4, ft::kCountedBodyLen) == KeptBody(i));
  }
  m_client.ChangeReceieveWnd(m_next.Handle(), m_next.Message());
  m_clock.Advance(kOneCheckMs);
  EXPECT_EQ(m_next.Next(5s), LinkUp());
}

TEST_F(Backlog, IsReleasedWithItsWindowOrWithTheClient) {
  Fill(m_window);
  m_window.Destroy();
  EXPECT_TRUE(AreReleased());
  m_client.UnLink();
  Fill(m_next);
  m_client.UnLink();
  EXPECT_TRUE(AreReleased());
}

// Neither the silence of a server that is not read nor a missing answer is held against it.
TEST_F(Backlog, MakesTheServerWaitAndTheLinkSurvives) {
  constexpr int kMany = 60000;
  const auto body = [](int i) { return std::to_string(i) + Bytes(1000, '.'); };
  ClockShift wall;
  Peer peer = LinkWith(&m_server);
  std::atomic<int> sent{0};
  std::thread sending([&] {
    for (; sent < kMany; ++sent) peer.SendPackage(body(sent));
  });
  EXPECT_FALSE(WaitUntil([&] { return sent == kMany; }, 1s));
  EXPECT_EQ(Ask("?"), 0);
  wall.SetWallClock(60);
  m_clock.Advance(60000);
  EXPECT_FALSE(WaitUntil([&] { return m_client.IsOnline() == 0; }, 500ms));
  int taken = 0;
  while (taken < kMany && m_window.Next(5s) == Package(body(taken))) ++taken;
  EXPECT_EQ(taken, kMany);
  EXPECT_EQ(m_client.IsOnline(), 1);
  sending.join();
}

}  // namespace
