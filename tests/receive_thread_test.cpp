// What arrives on a link: cut, delivered in order and counted, or the end of the link.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/socket_faults.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = LinkEvent::Kind;

class ReceiveThread : public testing::Test {
 protected:
  TestProtocol::OpenedLink Open() {
    if (m_protocol.IsRunning() == 0) m_protocol.Start();
    return m_protocol.OpenLink(m_server);
  }

  bool WaitForUndelivered(std::int64_t bytes) {
    return WaitUntil([&] { return m_protocol.State().undelivered_recv_bytes.Get() == bytes; }, 10s);
  }

  // How many reads were logged to have completed so many packages.
  std::size_t CountedReads(int packages) const {
    return m_protocol.LinesWith(FormatString("Recv msg count[%d] from[127.0.0.1]\n", packages))
        .size();
  }

  // The next event is the end of the link for this reason, and the only new line says why.
  void ExpectClosed(const std::string& id, std::int32_t reason, const std::string& why = "") {
    const auto closed = m_protocol.Events().Take(10s);
    ASSERT_TRUE(closed && closed->kind == Kind::kClosed);
    EXPECT_EQ(closed->link.link_id, id);
    EXPECT_EQ(closed->reason, reason);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    if (!why.empty()) m_expected.push_back("Link down with[127.0.0.1]: " + why + "\n");
    std::vector<std::string> lines;
    for (const LogLine& line : m_protocol.LinesWith("Link down")) lines.push_back(line.text);
    EXPECT_EQ(lines, m_expected);
  }

  ScriptedServer m_server;
  TestProtocol m_protocol;
  std::vector<std::string> m_expected;  // lines about ended links
};

TEST_F(ReceiveThread, SingleBytesAndInterruptedCallsMakePackagesToo) {
  auto link = Open();
  SocketFaults faults;
  faults.ReceiveAtMost(1);
  faults.FailReceives(EINTR, 5);
  faults.FailReceives(EAGAIN, 3);
  faults.FailPolls(EINTR, 5);
  const Bytes large = PatternBody(2500);
  const Bytes stream = BuildPackage("a") + BuildPackage("") + BuildPackage(large);
  link.peer.SendRaw(stream);
  for (const Bytes& body : {Bytes("a"), Bytes(), large}) {
    EXPECT_EQ(m_protocol.ReceivePackage(), body);
  }
  EXPECT_EQ(CountedReads(1), 3U);
  EXPECT_EQ(CountedReads(0), stream.size() - 3);
  EXPECT_EQ(faults.PendingFailures(), 0);
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
}

TEST_F(ReceiveThread, ALinkThatThePeerEndsOrTheSystemBreaksEndsWithoutALine) {
  auto link = Open();
  link.peer.SendPackage("last words");
  ASSERT_EQ(m_protocol.ReceivePackage(), "last words");
  link.peer.Close();
  ExpectClosed(link.id, 2);

  auto reset = Open();
  reset.peer.Reset();
  ExpectClosed(reset.id, 2);

  auto half = Open();
  half.peer.SendRaw(BuildPackage(PatternBody(3000)).substr(0, 2500));
  ASSERT_TRUE(WaitForUndelivered(2500));
  half.peer.StopSending();
  ExpectClosed(half.id, 2);
  EXPECT_TRUE(m_protocol.CountersReturnToZero()) << "what nobody will get is not counted for ever";

  auto broken = Open();
  SocketFaults faults;
  faults.FailReceives(ETIMEDOUT, 1);
  broken.peer.SendPackage("never read");
  ExpectClosed(broken.id, 2);
}

// All come in one read; the good ones are cut but the loop ends before they are delivered.
TEST_F(ReceiveThread, AFaultInTheStreamDropsTheGoodPackagesOfTheSameReadToo) {
  const Bytes good = BuildPackage("good");
  auto too_big = Open();
  too_big.peer.SendRaw(good + good + BuildHeader(0x500000 - kHeaderSize, "sums"));
  ExpectClosed(too_big.id, 5, "Pkg is too big.");
  auto negative = Open();
  negative.peer.SendRaw(good + good + BuildHeader(0x7FFFFFFF, "sums"));
  ExpectClosed(negative.id, 5, "protocol is error.");
  EXPECT_EQ(CountedReads(2), 2U);
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
  m_protocol.Stop();
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

// The engine ends the link while its receive thread is about to find a fault of its own.
TEST_F(ReceiveThread, TheFirstReasonStands) {
  m_protocol.On().package_length = [&](const unsigned char*, std::int32_t) {
    m_protocol.CloseLink("01000000", 0);
    EXPECT_TRUE(WaitUntil([&] { return m_protocol.IsLinkUp("01000000") == 0; }, 10s));
    return -1;
  };
  auto link = Open();
  link.peer.SendRaw("no package");
  ExpectClosed(link.id, 6, "I close it.");
}

TEST_F(ReceiveThread, APackageMayShrinkWhileItIsAssembledButNotGrow) {
  m_protocol.On().package_length = [](const unsigned char* data, std::int32_t count) {
    if (count == 0) return 0;
    if (data[0] == 'y') return count < 510 ? 510 : count;
    return count < 3000 ? 3000 : data[0] == 's' ? 2500 : 3001;
  };
  auto link = Open();
  link.peer.SendRaw(Bytes(2500, 's') + Bytes(500, 'y'));
  ASSERT_EQ(m_protocol.ReceivePackage(), Bytes(2500 - kHeaderSize, 's'));
  link.peer.SendRaw(Bytes(10, 'z'));
  EXPECT_EQ(m_protocol.ReceivePackage(), Bytes(500 - kHeaderSize, 'y') + Bytes(10, 'z'))
      << "the rest belongs to the next one";
  link.peer.SendRaw(Bytes(3000, 'g'));
  ExpectClosed(link.id, 8, "VGetOnePkgLen is error.");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(ReceiveThread, OnlySilenceOfMoreThan35SecondsEndsTheLink) {
  ManualClock clock;
  auto link = Open();
  for (int bytes = 1; bytes <= 3; ++bytes) {
    clock.Advance(35000);
    link.peer.SendRaw("\1");
    ASSERT_TRUE(WaitForUndelivered(bytes));
  }
  for (const std::uint32_t silence : {33000U, 2000U}) {
    clock.Advance(silence);
    EXPECT_EQ(link.peer.WaitClosed(1200ms), LinkEnd::kStillOpen);  // two waits of the thread
  }
  EXPECT_EQ(m_protocol.IsLinkUp(link.id), 1);
  const FastClock runs_on(20);
  ExpectClosed(link.id, 1, "Recv timeout.");
}

// A link with half a package and 25,000,000 bytes undelivered waits two seconds before it reads on.
TEST(Throttle, ReadingSlowsDownWhenTooMuchWaitsForTheProtocolsThread) {
  const struct {
    EventMode mode;
    std::int32_t limit;
    bool is_slow;
  } cases[] = {{EventMode::kByMessage, 25, true},
               {EventMode::kByMessage, 26, false},
               {EventMode::kDirect, 1, false}};
  for (const auto& c : cases) {
    ScriptedServer server;
    TestProtocol protocol(c.mode);
    protocol.Start();
    auto link = protocol.OpenLink(server);
    auto& undelivered = protocol.State().undelivered_recv_bytes;
    protocol.State().recv_backlog_limit.Set(c.limit);
    undelivered.Add(25000000 - 6);
    const Bytes package = BuildPackage("first and second");
    link.peer.SendRaw(package.substr(0, 6));
    EXPECT_TRUE(WaitUntil([&] { return undelivered.Get() == 25000000; }, 10s));
    const auto begin = steady_clock::now();
    link.peer.SendRaw(package.substr(6));
    EXPECT_EQ(protocol.ReceivePackage(), "first and second");
    EXPECT_TRUE(!c.is_slow || steady_clock::now() - begin >= 1800ms);
    EXPECT_NE(protocol.LinesWith("Recv MinResolveMillSec=[2000] of [127.0.0.1]\n").empty(),
              c.is_slow);
    undelivered.Add(-(25000000 - 6));
    EXPECT_TRUE(protocol.CountersReturnToZero());
  }
}

}  // namespace
}  // namespace testkit
