#include "client/server_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The hosts of so many turns, one letter each; '-' for no server.
std::string Turns(CServerList* list, int turns) {
  std::string hosts;
  for (int i = 0; i < turns; ++i) {
    const ServerEntry* const server = list->TakeNext();
    hosts += server == nullptr ? "-" : server->host;
  }
  return hosts;
}

TEST(ServerList, TurnsGoRoundTheUsableServers) {
  const struct {
    std::vector<ServerEntry> servers;
    const char* turns;
  } cases[] = {
      {{}, "----"},
      {{{"a", 1}, {"b", 2}, {"c", 65535}}, "abca"},
      {{{"a", 1}, {"b", 2}, {"c", 0}, {"d", 4}}, "abab"},
      {{{"a", 1}, {"b", -1}, {"c", 3}}, "aaaa"},
      {{{"a", 0}, {"b", 2}}, "abab"},  // the first is tried whatever its port
  };
  for (const auto& c : cases) {
    CServerList list;
    list.Assign(c.servers);
    EXPECT_EQ(Turns(&list, 4), c.turns);
  }

  CServerList list;
  list.Assign({{"a", 1}, {"b", 1}, {"c", 1}});
  EXPECT_EQ(Turns(&list, 3), "abc");
  list.Assign({{"x", 1}, {"y", 1}});
  EXPECT_EQ(Turns(&list, 3), "xyx") << "the turn was behind the end of the shorter list";
}

}  // namespace
