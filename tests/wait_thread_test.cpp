// The last seconds of a link: kept for a while, then joined, closed and deleted.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/release_counter.h"
#include "tests/support/socket_traits.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

constexpr auto kAWhile = 300ms;  // for what must not happen

// Packages that nobody reads are released when their link is deleted, and so show when that is.
class WaitThread : public testing::Test {
 protected:
  void SetUp() override {
    m_protocol.StartAlone();
    m_threads = CountThreads();
  }

  TestProtocol::OpenedLink OpenStuckLink() {
    auto link = m_protocol.OpenLink(m_slow);
    const Bytes large = PatternBody(3000000);
    m_protocol.SendPkg(link.id, NewBuffer(large), &ReleaseCounter::Release, 0, 1, 1);
    m_protocol.SendPkg(link.id, NewBuffer("small"), &ReleaseCounter::Release, 0, 1, 3);
    return link;
  }

  // The threads of all links have ended, joined or not.
  bool AllLinksFinish() const {
    return WaitUntil([&] { return CountThreads() == m_threads; }, 10s);
  }

  ScriptedServer m_slow{4096};
  const ReleaseCounter m_released;
  TestProtocol m_protocol;
  std::size_t m_threads = 0;
};

TEST_F(WaitThread, DeletesALinkMoreThan5SecondsAfterItFinished) {
  ManualClock clock;
  const HeldResources before;
  {
    auto link = OpenStuckLink();
    link.peer.StopSending();
    ASSERT_EQ(m_protocol.WaitClosed(), 2);
    ASSERT_TRUE(AllLinksFinish());
    clock.Advance(5000);
    EXPECT_FALSE(WaitUntil([&] { return m_released.Count() > 0; }, kAWhile));
    EXPECT_GT(m_protocol.State().queued_send_bytes.Get(), 0);
    EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads + 1);
    const FastClock runs_on(4);
    EXPECT_TRUE(m_released.Reaches(2, 5s)) << m_released.Count();
    EXPECT_TRUE(m_protocol.CountersReturnToZero());
    EXPECT_EQ(TestProtocol::GetThreadCount(), TestProtocol::kThreads);
  }
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

TEST_F(WaitThread, ClosesTheSocketOfALinkAtTheLatestWhenItDeletesIt) {
  const LinkEnd reset = EndOfResetLinks();
  ManualClock clock;
  auto link = m_protocol.OpenLink(m_slow);
  link.peer.StopSending();
  ASSERT_EQ(m_protocol.WaitClosed(), 2);
  ASSERT_TRUE(AllLinksFinish());
  const FastClock runs_on(20);
  EXPECT_EQ(link.peer.WaitClosed(10s), reset);
}

TEST_F(WaitThread, DeletesSeveralLinksInOneCheck) {
  ManualClock clock;
  const HeldResources before;
  for (int i = 0; i < 5; ++i) {
    auto link = OpenStuckLink();
    m_protocol.CloseLink(link.id, 0);
    ASSERT_EQ(m_protocol.WaitClosed(), 6);
  }
  ASSERT_TRUE(AllLinksFinish());
  clock.Advance(5000);
  EXPECT_FALSE(WaitUntil([&] { return m_released.Count() > 0; }, kAWhile));
  const FastClock runs_on(4);
  EXPECT_TRUE(m_released.Reaches(10, 5s)) << m_released.Count();
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

// A protocol with a link whose deletion shows in the counter, for what happens at the end.
void OpenAndFinishLink(TestProtocol& protocol, FTReleaseFunction release) {
  ScriptedServer slow(4096);
  const std::size_t threads = CountThreads();
  auto link = protocol.OpenLink(slow);
  ASSERT_EQ(protocol.SendPkg(link.id, NewBuffer(PatternBody(3000000)), release, 0, 1, 1), 0);
  link.peer.StopSending();
  ASSERT_EQ(protocol.WaitClosed(), 2);
  ASSERT_TRUE(WaitUntil([&] { return CountThreads() == threads; }, 10s));
}

// The engine looks for finished links every 5 seconds, and for connects that are due after that.
void HandFinishedLinksOver(TestProtocol& protocol, ManualClock& clock, ScriptedServer& server) {
  protocol.Connect(server.Host(), server.Port(), 0, 0, nullptr, 0, 5);
  clock.Advance(5000);
  ASSERT_TRUE(protocol.WaitFor(LinkEvent::Kind::kConnected));
}

TEST(WaitThreadAtItsEnd, DeletesWhatItHoldsAtOnce) {
  const HeldResources before;
  const ReleaseCounter released;
  {
    ManualClock clock;
    ScriptedServer server;
    TestProtocol protocol;
    protocol.StartAlone();
    for (int i = 0; i < 3; ++i) OpenAndFinishLink(protocol, &ReleaseCounter::Release);
    HandFinishedLinksOver(protocol, clock, server);
    EXPECT_EQ(released.Count(), 0);
    protocol.Stop();
    EXPECT_EQ(released.Count(), 3);
  }
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

TEST(WaitThreadAtItsEnd, LinksThatFinishedButWereNotHandedOverGoWithTheEngine) {
  const HeldResources before;
  const ReleaseCounter released;
  {
    const ManualClock clock;
    TestProtocol protocol;
    protocol.StartAlone();
    OpenAndFinishLink(protocol, &ReleaseCounter::Release);
    protocol.Stop();
  }
  EXPECT_EQ(released.Count(), 1);
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

Mailbox<int>& Entered() {
  static Mailbox<int> entered;
  return entered;
}

Mailbox<int>& MayLeave() {
  static Mailbox<int> may_leave;
  return may_leave;
}

void ReleaseSlowly(CFTBuffer* buffer) {
  Entered().Push(1);
  MayLeave().WaitFor(1, 10s);
  ReleaseFTBuffer(buffer);
}

// The wait thread is still deleting one link when another is handed over and the stop comes.
TEST(WaitThreadAtItsEnd, LinksThatItNeverTookUpAreDeletedToo) {
  const HeldResources before;
  const ReleaseCounter released;
  {
    ManualClock clock;
    ScriptedServer server;
    TestProtocol protocol;
    protocol.StartAlone();
    OpenAndFinishLink(protocol, &ReleaseSlowly);
    HandFinishedLinksOver(protocol, clock, server);
    clock.Advance(2001);
    ASSERT_TRUE(Entered().WaitFor(1, 10s));
    OpenAndFinishLink(protocol, &ReleaseCounter::Release);
    HandFinishedLinksOver(protocol, clock, server);
    const std::int32_t threads = TestProtocol::GetThreadCount();
    std::thread stopping([&] { protocol.Stop(); });
    // Listener and connector are joined: the wait thread is told to stop now.
    EXPECT_TRUE(WaitUntil([&] { return TestProtocol::GetThreadCount() == threads - 2; }, 10s));
    std::this_thread::sleep_for(kAWhile / 10);
    MayLeave().Push(1);
    stopping.join();
    EXPECT_EQ(released.Count(), 0);
  }
  EXPECT_EQ(released.Count(), 1);
  EXPECT_TRUE(before.AreRestored(10s)) << before.Difference();
}

}  // namespace
}  // namespace testkit
