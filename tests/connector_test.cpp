#include "00shcode/ftmtsockimpl/connector.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/dead_ports.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/manual_clock.h"
#include "tests/support/process_usage.h"
#include "tests/support/scripted_server.h"
#include "tests/support/socket_traits.h"
#include "tests/support/stand_ins.h"
#include "tests/support/wait_until.h"

namespace {

using namespace testkit;
using namespace std::chrono_literals;
using Ids = std::vector<std::string>;

// The clock stands still, and no connect times out, unless the test lets the time pass.
class ConnectorTest : public ::testing::Test {
 protected:
  ConnectorTest() { m_connector.StartThread(0); }
  ~ConnectorTest() override { Stop(); }

  void Stop() {
    m_connector.StopThread();
    m_connector.WaitThreadExit();
  }

  void Connect(const std::string& link_id, const char* host, std::uint16_t port) {
    auto link = std::make_unique<FTLinkInfo>();
    link->link_id = link_id;
    link->remote_address = host;
    link->remote_port = port;
    m_connector.PostMsg(FTMSG_CONNECT, "", 1, ToParam(std::move(link)));
  }

  template <typename Server>
  void Connect(const std::string& link_id, const Server& server) {
    Connect(link_id, server.Host(), server.Port());
  }

  void Close(const std::string& link_id, std::uintptr_t flag = 0) {
    m_connector.PostMsg(FTMSG_CLOSE_LINK, "", 1, ToParam(std::make_unique<std::string>(link_id)),
                        flag);
  }

  // Waits until the connector has taken what was posted to it and looked at its timers, and the
  // owner has what the connector posted. A close request of an unknown id comes back through the
  // engine; the cycle that carries the second one began after the first had passed.
  Ids TakeFailedIds() {
    for (int pass = 0; pass < 2; ++pass) {
      Close("unknown");
      const auto noted = m_engine.Msgs().Take(10s);
      EXPECT_TRUE(noted && noted->link_id == "unknown");
    }
    return OwnersFailedIds();
  }

  Ids OwnersFailedIds() {
    EXPECT_TRUE(m_owner.CatchUp());
    Ids ids;
    while (auto noted = m_owner.Msgs().Take(0ms)) {
      EXPECT_EQ(noted->id, FTMSG_CONNECT_FAILED);
      ids.push_back(noted->link.link_id);
    }
    return ids;
  }

  const ClosedPort m_refusing;
  const FullBacklogPort m_silent;
  ManualClock m_clock;
  RecordingOwner m_owner;
  RecordingThread m_engine;
  CFTMtSockConn m_connector{&m_owner, &m_engine};
};

TEST_F(ConnectorTest, ACompletedConnectBecomesALinkAlthoughOthersHang) {
  ScriptedServer server;
  Connect("refused", m_refusing);
  Connect("silent", m_silent);
  Connect("good", server);

  const auto noted = m_engine.Msgs().Take(10s);
  ASSERT_TRUE(noted && noted->id == FTMSG_ADD_LINK);
  const Descriptor socket(static_cast<int>(noted->req.link.socket));
  EXPECT_EQ(noted->req.link.link_id, "good");
  EXPECT_EQ(noted->req.link.local_port, LocalPort(socket));
  EXPECT_EQ(FTSockSend(socket.Get(), "hello", 5), 5) << "the socket is the engine's now";
  EXPECT_EQ(server.Accept(5s).ReceiveExactly(5, 5s), "hello");
  EXPECT_EQ(TakeFailedIds(), Ids{});
}

TEST_F(ConnectorTest, AConnectWithoutSuccessCostsNothingAndIsReportedAtItsTimeOut) {
  const std::size_t before = CountDescriptors();
  Connect("silent", m_silent);
  Connect("refused", m_refusing);
  EXPECT_EQ(TakeFailedIds(), Ids{});
  // One that is not told to have failed is as silent.
  const std::size_t silent = FailedConnectsAreWritable() ? 1 : 2;
  EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() == before + silent; }, 5s))
      << "only a silent connect keeps its socket";
  const auto cpu_before = CpuTime();
  std::this_thread::sleep_for(1s);  // the time measured
  EXPECT_LT(CpuTime() - cpu_before, 150ms) << "the system calls a refused socket ready for ever";

  m_clock.Advance(5000);
  Connect("later", m_refusing);
  EXPECT_EQ(TakeFailedIds(), Ids{});
  m_clock.Advance(5000);
  EXPECT_EQ(TakeFailedIds(), Ids{}) << "the time-out has not passed, it has only been reached";
  m_clock.Advance(70);
  EXPECT_EQ(TakeFailedIds(), (Ids{"silent", "refused"}));
  m_clock.Advance(5000);
  EXPECT_EQ(TakeFailedIds(), Ids{"later"});
  EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() == before; }, 5s));
  EXPECT_EQ(m_owner.Errors().Count(), 0U);
}

TEST_F(ConnectorTest, CloseRequestsCancelPendingConnectsOrGoOnToTheEngineUnchanged) {
  const std::size_t before = CountDescriptors();
  Connect("silent", m_silent);
  Connect("refused", m_refusing);
  Connect("stays", m_silent);
  EXPECT_EQ(TakeFailedIds(), Ids{});
  Close("refused");
  Close("silent", 1);
  Close("silent", 1);
  const auto passed_on = m_engine.Msgs().Take(10s);
  ASSERT_TRUE(passed_on && passed_on->id == FTMSG_CLOSE_LINK);
  EXPECT_EQ(passed_on->link_id, "silent");
  EXPECT_EQ(passed_on->flag, 1U);
  EXPECT_EQ(TakeFailedIds(), (Ids{"refused", "silent"}));
  EXPECT_EQ(CountDescriptors(), before + 1);
  m_clock.Advance(10070);
  EXPECT_EQ(TakeFailedIds(), Ids{"stays"}) << "and nobody else twice";
}

TEST_F(ConnectorTest, AConnectThatCannotBeginIsReportedAtOnceWithALine) {
  Connect("no port", "127.0.0.1", 0);
  Connect("a name", "localhost", 80);
  EXPECT_EQ(TakeFailedIds(), (Ids{"no port", "a name"}));
  {
    const DescriptorLimit none(0);
    Connect("no socket", "127.0.0.1", 80);
    EXPECT_EQ(TakeFailedIds(), Ids{"no socket"});
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(m_owner.Errors().Take(0ms).value_or(LogLine()).text,
              "ftmtsockimpl.cpp:1930 [-1] BeginConnect failed, socket fd maybe not enough.");
  }
}

TEST_F(ConnectorTest, PendingConnectsAreReportedWhenTheThreadEnds) {
  Connect("silent", m_silent);
  Connect("refused", m_refusing);
  EXPECT_EQ(TakeFailedIds(), Ids{});
  Stop();
  EXPECT_EQ(OwnersFailedIds(), (Ids{"silent", "refused"}));
}

}  // namespace
