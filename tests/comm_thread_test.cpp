// The client's protocol class below its public face.
#include "client/comm_thread.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "client/client_slot.h"
#include "client/package.h"
#include "tests/support/client_test.h"
#include "tests/support/manual_clock.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

// Plays the engine: posts its messages about links to the running client.
class CommThread : public ClientTest {
 protected:
  static void Post(std::uint32_t message, const std::string& link_id, std::uintptr_t param = 0) {
    auto link = std::make_unique<FTLinkInfo>();
    link->link_id = link_id;
    g_pClientCommThread->PostMsg(message, "", 1, reinterpret_cast<std::uintptr_t>(link.release()),
                                 param);
  }

  static void PostPackage(const std::string& link_id, const Bytes& body) {
    auto package = std::make_unique<CFTBuffer>();
    EncodePkg(package.get(), body.data(), static_cast<std::int32_t>(body.size()));
    Post(FTMSG_RECV_PKG, link_id, reinterpret_cast<std::uintptr_t>(package.release()));
  }
};

TEST_F(CommThread, LinksThatWereReplacedAreNotHeardAnyMore) {
  const std::string current = "01000000";  // the first link of a client
  const std::string replaced = "FF000000";
  ManualClock clock;  // stands still: no further link is made
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  PostPackage(replaced, "stale");
  Post(FTMSG_LINK_CLOSED, replaced);
  Post(FTMSG_CONNECT_FAILED, replaced);
  Post(FTMSG_LINK_UP, replaced, reinterpret_cast<std::uintptr_t>(new FTLinkInfo));
  PostPackage(current, "fresh");
  EXPECT_EQ(m_window.Next(5s), Package("fresh"));
  EXPECT_EQ(m_client.IsOnline(), 1);

  Post(FTMSG_LINK_CLOSED, current);
  PostPackage(current, "after the end");
  Post(FTMSG_LINK_CLOSED, current);
  EXPECT_EQ(m_window.Next(5s), LinkClosed());
  EXPECT_EQ(m_window.Next(200ms), std::nullopt);
}

}  // namespace
}  // namespace testkit
