// Processes that end without a word to their client: a global one, which ends after main, or one
// that nobody ends. Each test ends a process of its own.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "client/client_slot.h"
#include "client/clientdatasource.h"
#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"
#include "tests/support/environment.h"
#include "tests/support/wait_until.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

constexpr char kEarlyPort[] = "TEST_LINK_BEFORE_MAIN_TO_PORT";

struct Host {
  CClientDataSource client;

  // Links before main when the test asks for it.
  Host() {
    if (const char* const port = std::getenv(kEarlyPort)) {
      LinkClient(&client, {{kLoopbackHost, std::atoi(port)}}, 0, 0);
    }
  }
};

Host g_host;
EchoServer* g_server = nullptr;  // in the ending process, which never ends it

class ClientExitDeathTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

[[noreturn]] void EndLinked(CClientDataSource* client, int requests) {
  g_server = new EchoServer;
  ClientWindow window(client);
  LinkClient(client, {At(*g_server)}, window.Handle(), window.Message());
  if (window.Next(10s) != LinkUp()) std::_Exit(2);
  for (int i = 0; i < requests; ++i) client->AskData("do not answer me", 16);
  std::exit(0);
}

[[noreturn]] void EndWhileConnecting() {
  const ClientWindow window(&g_host.client);
  LinkClient(&g_host.client, {{kLoopbackHost, 0}}, window.Handle(), window.Message());
  std::exit(0);
}

[[noreturn]] void EndAfterAnEarlyLink() {
  if (g_pClientCommThread == nullptr) std::_Exit(2);
  std::exit(WaitUntil([] { return g_host.client.IsOnline() == 1; }, 10s) ? 0 : 3);
}

TEST_F(ClientExitDeathTest, ClientMayBeAtWorkWhenMainEnds) {
  const ::testing::ExitedWithCode well(0);
  EXPECT_EXIT(EndLinked(&g_host.client, 0), well, "^$");
  EXPECT_EXIT(EndLinked(&g_host.client, 5000), well, "^$");
  EXPECT_EXIT(EndLinked(new CClientDataSource, 5000), well, "^$");
  EXPECT_EXIT(EndWhileConnecting(), well, "");
}

TEST_F(ClientExitDeathTest, GlobalClientMayLinkBeforeMain) {
  const EchoServer server;
  SetVariable(kEarlyPort, std::to_string(server.Port()).c_str());
  EXPECT_EXIT(EndAfterAnEarlyLink(), ::testing::ExitedWithCode(0), "^$");
  SetVariable(kEarlyPort, "");
}

}  // namespace
}  // namespace testkit
