// A request that is left without an answer ends its link. The wait is counted in whole seconds of
// the wall clock and looked at on a timer of the tick clock; the tests move each by itself.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <optional>
#include <stdexcept>

#include "00shcode/mytoolkit/clock.h"
#include "tests/support/client_test.h"
#include "tests/support/dead_ports.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/wait_until.h"
#include "tests/support/wall_clock_shift.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr int kTooLongSec = 9;

class ReplyWatchdog : public ClientTest {
 protected:
  // Keeps the link alive with heartbeats and damaged packages, neither of which is an answer.
  std::optional<Notification> NextWithoutAnswer(Peer* peer, std::chrono::milliseconds limit) {
    const auto end = steady_clock::now() + limit;
    try {
      do {
        peer->SendHeartbeat();
        peer->SendRaw(BuildHeader(1, FromHex("00 00 00 00")) + "x");
        if (auto next = m_window.Next(20ms)) return next;
      } while (steady_clock::now() < end);
      return std::nullopt;
    } catch (const std::runtime_error&) {
      return m_window.Next(5s);  // the link has ended, and the window is about to hear of it
    }
  }

  FastClock m_fast{10};
  WallClockShift m_wall;
  ScriptedServer m_server;
};

TEST_F(ReplyWatchdog, WaitEndsWithTheLinkThatItClosed) {
  ScriptedServer second;
  ASSERT_EQ(Link({At(m_server), At(second)}), 1);
  Peer peer = TakeLink(&m_server);
  // A clock far ahead: the seconds run over 32 bits during the wait.
  m_wall.Advance(std::int64_t{INT32_MAX} - 5 - GetNowTime().seconds);
  EXPECT_EQ(Ask("?"), 0);
  EXPECT_EQ(NextWithoutAnswer(&peer, 500ms), std::nullopt);
  m_wall.Advance(kTooLongSec + 3);
  EXPECT_EQ(NextWithoutAnswer(&peer, 5s), LinkClosed());
  Peer next = TakeLink(&second);
  m_wall.Advance(60);
  EXPECT_EQ(NextWithoutAnswer(&next, 600ms), std::nullopt);
}

TEST_F(ReplyWatchdog, EightWholeSecondsAreNotTooLong) {
  Peer peer = LinkWith(&m_server);
  for (int attempt = 0; attempt < 5; ++attempt) {
    const auto before = GetNowTime().seconds;
    ASSERT_TRUE(WaitUntil([&] { return GetNowTime().seconds != before; }, 5s));
    const auto asked = GetNowTime().seconds;
    ASSERT_EQ(Ask("?"), 0);
    m_wall.Advance(8);
    const auto ended = NextWithoutAnswer(&peer, 500ms);
    if (GetNowTime().seconds == asked + 8) {
      EXPECT_EQ(ended, std::nullopt);
      return;
    }
    // A machine that was busy for the rest of that second has shown nothing.
    m_client.UnLink();
    m_window.Drain();
    peer = LinkWith(&m_server);
  }
  FAIL() << "the machine is too busy";
}

TEST_F(ReplyWatchdog, OnlyWhatWasAskedAndNotAnsweredIsWaitedFor) {
  Peer peer = LinkWith(&m_server);
  EXPECT_EQ(m_client.AskData("refused", unsigned{INT_MAX} - 11), -1);
  m_wall.Advance(60);
  EXPECT_EQ(NextWithoutAnswer(&peer, 600ms), std::nullopt);

  EXPECT_EQ(Ask("one"), 0);
  EXPECT_EQ(Ask("two"), 0);
  peer.SendPackage("");  // any package is the answer to both
  EXPECT_EQ(m_window.Next(5s), Package(""));
  m_wall.Advance(60);
  EXPECT_EQ(NextWithoutAnswer(&peer, 600ms), std::nullopt);

  EXPECT_EQ(m_client.AskData(nullptr, 10), 0);  // sends nothing, and waits all the same
  m_wall.Advance(kTooLongSec);
  EXPECT_EQ(NextWithoutAnswer(&peer, 5s), LinkClosed());
}

TEST_F(ReplyWatchdog, RequestDuringTheConnectIsLostAndEndsTheConnect) {
  ManualClock clock;
  FullBacklogPort mute;
  ASSERT_EQ(Link({At(mute), At(m_server)}), 1);
  // Until the client's thread has begun to connect there is no link, and requests are refused.
  ASSERT_TRUE(WaitUntil([&] { return Ask("lost") == 0; }, 5s));
  EXPECT_EQ(m_client.IsOnline(), 0);
  EXPECT_EQ(m_window.Next(0ms), std::nullopt);
  m_wall.Advance(kTooLongSec);
  clock.Advance(kOneCheckMs);  // far from the connect's own time-out
  EXPECT_EQ(m_window.Next(5s), ConnectFailed());
  clock.Advance(kOneCheckMs);
  Peer peer = TakeLink(&m_server);
  EXPECT_EQ(Ask("sent"), 0);
  EXPECT_EQ(peer.ReceivePackage(5s), "sent");
}

}  // namespace
}  // namespace testkit
