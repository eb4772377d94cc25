// What arrives on a link: cut, delivered in order and counted, or the end of the link.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/answering_server.h"
#include "tests/support/fast_clock.h"
#include "tests/support/manual_clock.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/test_protocol.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = LinkEvent::Kind;

class Receiving : public testing::Test {
 protected:
  TestProtocol::OpenedLink Open() {
    if (m_protocol.IsRunning() == 0) m_protocol.Start();
    return m_protocol.OpenLink(m_server);
  }

  bool WaitForUndelivered(std::int64_t bytes) {
    return WaitUntil([&] { return m_protocol.State().undelivered_recv_bytes == bytes; }, 10s);
  }

  // The next event is the end of the link for this reason, and the only new line says why.
  void ExpectClosed(const std::string& id, FTCloseReason reason, int line = 0,
                    const std::string& why = "") {
    const auto closed = m_protocol.Events().Take(10s);
    ASSERT_TRUE(closed && closed->kind == Kind::kClosed);
    EXPECT_EQ(closed->link.link_id, id);
    EXPECT_EQ(closed->reason, reason);
    EXPECT_EQ(m_protocol.IsLinkUp(id), 0);
    const auto lines = m_protocol.LinesWith("Link down");
    if (line == 0) {
      EXPECT_EQ(lines.size(), m_lines);
      return;
    }
    ASSERT_EQ(lines.size(), ++m_lines);
    EXPECT_EQ(lines.back().text, "Link down with[127.0.0.1]: " + why + "\n");
    EXPECT_EQ(lines.back().line, line);
    EXPECT_EQ(lines.back().level_code, -1);
  }

  ScriptedServer m_server;
  TestProtocol m_protocol;
  std::size_t m_lines = 0;  // about ended links, so far
};

TEST_F(Receiving, ALinkThatThePeerEndsEndsWithoutALine) {
  auto link = Open();
  link.peer.SendPackage("last words");
  ASSERT_EQ(m_protocol.ReceivePackage(), "last words");
  link.peer.Close();
  ExpectClosed(link.id, FTCloseReason::kRecvFailed);

  auto reset = Open();
  reset.peer.Reset();
  ExpectClosed(reset.id, FTCloseReason::kRecvFailed);

  auto half = Open();
  half.peer.SendRaw(BuildPackage(PatternBody(3000)).substr(0, 2500));
  ASSERT_TRUE(WaitForUndelivered(2500));
  half.peer.StopSending();
  ExpectClosed(half.id, FTCloseReason::kRecvFailed);
  EXPECT_TRUE(m_protocol.CountersReturnToZero()) << "what nobody will get is not counted for ever";
}

// Of the good packages only those of the same regular buffer are lost with the faulty one.
TEST_F(Receiving, AFaultInTheStreamEndsTheLinkAndDropsThePackagesBesideIt) {
  const Bytes good = BuildPackage("good");
  const Bytes large = PatternBody(3000);
  auto too_big = Open();
  too_big.peer.SendRaw(BuildPackage(large) + good + good +
                       BuildHeader(0x500000 - kHeaderSize, "sums"));
  EXPECT_EQ(m_protocol.ReceivePackage(), large);
  ExpectClosed(too_big.id, FTCloseReason::kBadPkg, 2372, "Pkg is too big.");
  auto negative = Open();
  negative.peer.SendRaw(good + good + BuildHeader(0x7FFFFFFF, "sums"));
  ExpectClosed(negative.id, FTCloseReason::kBadPkg, 2455, "protocol is error.");
  const auto counts = m_protocol.LinesWith("Recv msg count[2] from[127.0.0.1]\n");
  ASSERT_FALSE(counts.empty());
  EXPECT_EQ(counts[0].level_code, 10);
  EXPECT_EQ(counts[0].line, 2335);
  EXPECT_TRUE(m_protocol.CountersReturnToZero());

  auto largest = Open();
  const Bytes body = PatternBody(0x500000 - kHeaderSize - 1);
  largest.peer.SendPackage(body);
  EXPECT_TRUE(m_protocol.ReceivePackage() == body);
  m_protocol.Stop();
  EXPECT_EQ(m_protocol.Events().Count(), 0U);
}

// The engine ends the link while its receive thread is about to find a fault of its own.
TEST_F(Receiving, TheFirstReasonStands) {
  m_protocol.On().package_length = [&](const unsigned char*, std::int32_t) {
    m_protocol.Close("01000000");
    EXPECT_TRUE(WaitUntil([&] { return m_protocol.IsLinkUp("01000000") == 0; }, 10s));
    return -1;
  };
  auto link = Open();
  link.peer.SendRaw("not a package");
  ExpectClosed(link.id, FTCloseReason::kOnRequest, 333, "I close it.");
}

TEST_F(Receiving, APackageMayShrinkWhileItIsAssembledButNotGrow) {
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
  ExpectClosed(link.id, FTCloseReason::kNotStarted, 2421, "VGetOnePkgLen is error.");
  EXPECT_TRUE(m_protocol.CountersReturnToZero());
}

TEST_F(Receiving, OnlySilenceOfMoreThan35SecondsEndsTheLink) {
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
  ExpectClosed(link.id, FTCloseReason::kRecvTimeout, 2502, "Recv timeout.");
}

// A link with half a package and 800,000,000 bytes undelivered reads on after 64 seconds, or as
// soon as the protocol object has caught up.
TEST(Throttle, ReadingWaitsWhileTooMuchWaitsForTheProtocolObject) {
  constexpr std::int64_t kLimit = 800000000;
  const struct {
    FTEventMode mode;
    std::int64_t behind;
    bool waits;
  } cases[] = {{FTEventMode::kByMessage, kLimit, true},
               {FTEventMode::kByMessage, kLimit - 100, false},
               {FTEventMode::kDirect, kLimit, false}};
  for (const auto& c : cases) {
    ScriptedServer server;
    TestProtocol protocol(c.mode);
    protocol.Start();
    auto link = protocol.OpenLink(server);
    auto& undelivered = protocol.State().undelivered_recv_bytes;
    undelivered += c.behind - 6;
    const Bytes package = BuildPackage("first and second");
    link.peer.SendRaw(package.substr(0, 6));
    EXPECT_TRUE(WaitUntil([&] { return undelivered == c.behind; }, 10s));
    link.peer.SendRaw(package.substr(6));
    EXPECT_EQ(!protocol.Events().WaitFor(1, 700ms), c.waits);
    const auto lines = protocol.LinesWith("Recv MinResolveMillSec=[64000] of [127.0.0.1]\n");
    EXPECT_EQ(lines.size(), c.waits ? 1U : 0U);
    EXPECT_TRUE(!c.waits || (lines[0].line == 2301 && lines[0].level_code == 20));
    undelivered -= c.behind - 6;
    EXPECT_EQ(protocol.ReceivePackage(), "first and second");
    EXPECT_TRUE(protocol.CountersReturnToZero());
    const auto begin = steady_clock::now();
    link.peer.SendPackage("at full speed again");
    EXPECT_TRUE(protocol.ReceivePackage());
    EXPECT_LT(steady_clock::now() - begin, 2s);
  }
}

TEST(Traffic, ManyLinksAndSendersAtOnceLoseDoubleAndMixNothing) {
  constexpr int kLinks = 25;
  constexpr int kSenders = 4;
  constexpr std::size_t kPackages = 20;
  EchoServer echo;
  TestProtocol protocol;
  protocol.Start();
  std::vector<std::string> ids;
  for (int i = 0; i < kLinks; ++i) ids.push_back(protocol.Connect(echo.Host(), echo.Port()));
  for (int i = 0; i < kLinks; ++i) ASSERT_TRUE(protocol.WaitFor(Kind::kConnected));
  const auto body_of = [](char sender, const std::string& id, std::size_t number) {
    return sender + id + PatternBody(300 * number);
  };
  RunOnThreads(kSenders, [&](int sender) {
    const char letter = static_cast<char>('a' + sender);
    for (std::size_t i = 0; i < kPackages; ++i) {
      for (const std::string& id : ids) {
        EXPECT_EQ(protocol.Send(id, body_of(letter, id, i), sender), 0);
      }
    }
  });
  std::map<std::string, std::size_t> answers;  // by sender and link
  for (std::size_t i = 0; i < kLinks * kSenders * kPackages; ++i) {
    const auto event = protocol.WaitFor(Kind::kPackage);
    ASSERT_TRUE(event) << "only " << i << " answers";
    const std::string& id = event->link.link_id;
    const char sender = event->body.at(0);
    ASSERT_EQ(event->body, body_of(sender, id, answers[sender + id]++));
  }
  for (const std::string& id : ids) protocol.Close(id);
  for (int i = 0; i < kLinks; ++i) EXPECT_EQ(protocol.WaitClosed(), FTCloseReason::kOnRequest);
  EXPECT_TRUE(echo.WaitForOpenLinks(0, 10s));
  EXPECT_TRUE(protocol.CountersReturnToZero());
  EXPECT_EQ(protocol.Events().Count(), 0U);
}

}  // namespace
}  // namespace testkit
