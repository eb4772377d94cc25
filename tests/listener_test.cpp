#include "00shcode/ftmtsockimpl/listener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/support/descriptor_limit.h"
#include "tests/support/peer.h"
#include "tests/support/process_usage.h"
#include "tests/support/socket_io.h"
#include "tests/support/stand_ins.h"

namespace {

using namespace testkit;
using namespace std::chrono_literals;

class ListenerTest : public ::testing::Test {
 protected:
  ListenerTest() {
    platform::StartSockets();
    m_listener.StartThread(0);
  }
  ~ListenerTest() override { Stop(); }

  void Stop() {
    m_listener.StopThread();
    m_listener.WaitThreadExit();
  }

  // Returns the port; the entry says another one, as entries may.
  std::uint16_t Listen(const std::string& link_id) {
    auto entry = std::make_unique<FTLinkInfo>();
    std::uint16_t port = 0;
    entry->link_id = link_id;
    entry->kind = LINK_KIND_IN;
    entry->socket = FTSockListen("127.0.0.1", 0);
    FTSockGetAddrs(entry->socket, &entry->local_address, &port, nullptr, nullptr);
    entry->local_port = 9000;
    m_listener.PostMsg(FTMSG_ADD_LISTEN, "", 1, ToParam(std::move(entry)));
    return port;
  }

  void Close(const std::string& link_id, std::uintptr_t flag) {
    auto id = std::make_unique<std::string>(link_id);
    m_listener.PostMsg(FTMSG_CLOSE_LINK, "", 1, ToParam(std::move(id)), flag);
  }

  // The next link that the listener announces; the fixture closes its socket.
  NotedMsg TakeAnnounced() {
    const NotedMsg noted = m_engine.Msgs().Take(10s).value();
    m_accepted = Descriptor(static_cast<int>(noted.req.link.socket));
    return noted;
  }

  // The entry that answers at the port.
  std::string EntryAt(std::uint16_t port) try {
    const Peer caller = Peer::Connect(port, 5s);
    return TakeAnnounced().req.listener.link_id;
  } catch (const std::runtime_error&) {
    return "refused";
  }

  // A request that is not for the listener, and what becomes of it.
  void CloseOther(const std::string& link_id, std::uintptr_t flag) {
    Close(link_id, flag);
    const auto noted = m_connector.Msgs().Take(10s);
    ASSERT_TRUE(noted && noted->id == FTMSG_CLOSE_LINK);
    EXPECT_EQ(noted->link_id, link_id);
    EXPECT_EQ(noted->flag, flag);
  }

  RecordingOwner m_owner;
  RecordingThread m_engine;
  RecordingThread m_connector;
  Descriptor m_accepted;
  CFTMtSockListen m_listener{&m_owner, &m_engine, &m_connector};
};

TEST_F(ListenerTest, AnAcceptedConnectionIsAnnouncedAsALink) {
  Peer caller = Peer::Connect(Listen("entry"), 5s);
  const FTLinkInfo link = TakeAnnounced().req.link;
  std::uint16_t caller_port = 0;
  FTSockGetAddrs(link.socket, nullptr, nullptr, nullptr, &caller_port);
  EXPECT_EQ(link.link_id, "1");
  EXPECT_EQ(link.kind, LINK_KIND_IN);
  EXPECT_EQ(link.remote_address, "127.0.0.1");
  EXPECT_EQ(link.remote_port, caller_port);
  EXPECT_EQ(link.local_port, 9000);
  caller.SendRaw("hello");
  EXPECT_EQ(FTSockWaitReadable(link.socket, 5000), 1);
}

TEST_F(ListenerTest, CloseRequestsEndTheirEntryOrGoOnToTheConnectorUnchanged) {
  CloseOther("A", 0);  // with nothing to listen on
  const std::uint16_t first = Listen("first");
  const std::uint16_t second = Listen("second");
  for (const std::uint16_t port : {first, second, second, first}) {
    EXPECT_EQ(EntryAt(port), port == first ? "first" : "second");
  }

  const std::size_t with_both = CountDescriptors();
  Close("first", 0);
  CloseOther("B", 1);
  EXPECT_EQ(CountDescriptors(), with_both - 1);
  EXPECT_EQ(EntryAt(first), "refused");
  EXPECT_EQ(EntryAt(second), "second");
  Stop();
  EXPECT_EQ(EntryAt(second), "refused");
}

TEST_F(ListenerTest, WithoutFreeDescriptorsACallerWaitsUntilThereAreSome) {
  const std::uint16_t port = Listen("entry");
  // The undefined-behaviour sanitizer needs descriptors of its own when it first sees an object of
  // a class at work, so everything is done once before.
  ASSERT_EQ(EntryAt(port), "entry");
  m_listener.WriteLog("", 0, -1, "a line");
  ASSERT_TRUE(m_owner.Errors().Take(10s) && m_owner.CatchUp() && m_connector.CatchUp());

  auto limit = std::make_unique<DescriptorLimit>(1);
  const Peer caller = Peer::Connect(port, 5s);
  const auto line = m_owner.Errors().Take(10s);
  limit.reset();
  ASSERT_TRUE(line);
  EXPECT_EQ(line->text, "ftmtsockimpl.cpp:1660 [-1] accept() error, socket fd maybe not enough.\n");
  EXPECT_GE(TakeAnnounced().time - line->time, 1990ms)
      << "the listener pauses instead of trying in vain";
  EXPECT_EQ(m_owner.Errors().Count(), 0U);
}

}  // namespace
