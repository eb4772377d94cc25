// What needs clocks and a system that the test can bend. A request without an answer ends its link.
// The wait is counted in whole seconds of the wall clock and looked at on a timer of the tick
// clock; the tests move each by itself.
#include <fcntl.h>

#include "00shcode/mytoolkit/clock.h"
#include "tests/support/client_test.h"
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
  m_wall.SetWallClock(std::int64_t{INT32_MAX} - 5 - platform::WallClockSeconds());
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

// The line about the link that the watchdog closes finds a standard error that nobody reads.
TEST_F(ClientFaults, AStandardErrorThatNobodyReadsStopsNoCallOfTheApplication) {
  Peer peer = LinkWith(&m_server);
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
  const int room = fcntl(pipe_ends[1], F_SETPIPE_SZ, 4096);
  const Bytes filling(static_cast<std::size_t>(room), 'x');
  ASSERT_EQ(write(pipe_ends[1], filling.data(), filling.size()), room);
  const int own = dup(STDERR_FILENO);
  dup2(pipe_ends[1], STDERR_FILENO);
  EXPECT_EQ(Ask("?"), 0);
  m_wall.SetWallClock(kTooLongSec);
  EXPECT_TRUE(WaitUntil([&] { return m_client.IsOnline() == 0; }, 10s));
  EXPECT_LE(Ask("?"), 0);
  m_client.UnLink();
  dup2(own, STDERR_FILENO);
  for (const int descriptor : {own, pipe_ends[0], pipe_ends[1]}) close(descriptor);
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

}  // namespace
