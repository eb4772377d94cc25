// Queues and lists of the engine and the client that know neither threads nor sockets.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "00shcode/ftmtsockimpl/connect_schedule.h"
#include "00shcode/ftmtsockimpl/send_queue.h"
#include "client/server_list.h"

namespace {

constexpr std::int32_t kFull = 12500000;  // bytes that make a batch

struct Package {
  char name;
  std::int32_t priority;
  std::int32_t size = 10;
};

// Owns the packages, which are known by their names; what is in them does not matter here.
class NamedPackages {
 public:
  void Queue(const std::vector<Package>& packages) {
    for (const Package& package : packages) {
      CFTBuffer& buffer = m_buffers.emplace_back(static_cast<std::uint32_t>(package.size));
      buffer.CommitWrite(package.size);
      m_names[&buffer] = package.name;
      m_queue.Append(package.priority, {&buffer, nullptr});
    }
  }

  // The names in all the batches that it takes to empty the queue, each batch ended by a stroke.
  std::string TakeBatches() {
    std::string names;
    while (!m_queue.IsEmpty()) {
      std::deque<FTSendItem> batch;
      m_queue.TakeBatch(&batch);
      if (batch.empty()) return names + "nothing";
      for (const FTSendItem& item : batch) names += m_names.at(item.buffer);
      names += '|';
    }
    return names;
  }

 private:
  std::deque<CFTBuffer> m_buffers;
  std::map<const CFTBuffer*, char> m_names;
  CFTSendQueue m_queue;
};

TEST(SendQueue, BatchesFollowThePrioritiesAndTheLimit) {
  const struct {
    const char* rule;
    std::vector<Package> packages;
    const char* batches;
  } cases[] = {
      {"lower priorities first, each in the order of queueing",
       {{'a', 3}, {'b', 1}, {'c', 5}, {'d', 1}, {'e', 3}},
       "bdaec|"},
      {"priorities outside the range count as the nearest one",
       {{'a', 5}, {'b', INT32_MAX}, {'c', 1}, {'d', INT32_MIN}, {'e', 0}, {'f', 6}},
       "cdeabf|"},
      {"a batch ends behind the package that fills it",
       {{'a', 1, 6000000}, {'b', 1, 6000000}, {'c', 1, 6000000}, {'d', 1}},
       "abc|d|"},
      {"the limit itself fills a batch", {{'a', 1, kFull}, {'b', 1, 1}}, "a|b|"},
      {"one byte less does not", {{'a', 1, kFull - 1}, {'b', 2, 1}, {'c', 2, 1}}, "ab|c|"},
      {"a package of a batch waits for higher priorities alone, and nothing overtakes it",
       {{'a', 1}, {'b', 2}, {'C', 2, kFull}, {'d', 2}, {'e', 3}},
       "ab|C|de|"},
      {"but not within the first priority", {{'a', 2}, {'B', 2, 13000000}}, "aB|"},
  };
  for (const auto& c : cases) {
    NamedPackages queue;
    queue.Queue(c.packages);
    EXPECT_EQ(queue.TakeBatches(), c.batches) << c.rule;
    queue.Queue({{'B', 5, kFull}});
    EXPECT_EQ(queue.TakeBatches(), "B|") << "priorities that are empty again do not count";
  }
}

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

std::unique_ptr<FTLinkInfo> NamedLink(const std::string& id) {
  auto link = std::make_unique<FTLinkInfo>();
  link->link_id = id;
  return link;
}

TEST(ConnectSchedule, ReleasesWhatIsDueByIdAndRefusesAnIdTwice) {
  constexpr std::int32_t kMonth = 30 * 86400;  // more than DiffMs can tell
  CFTConnectSchedule schedule;
  EXPECT_EQ(schedule.Add(NamedLink("b"), 3, {100, 500}), nullptr);
  EXPECT_EQ(schedule.Add(NamedLink("a"), 4, {100, 500}), nullptr);
  EXPECT_EQ(schedule.Add(NamedLink("far"), kMonth, {100, 500}), nullptr);
  EXPECT_NE(schedule.Add(NamedLink("a"), 0, {100, 500}), nullptr);
  EXPECT_EQ(schedule.TakeDue({103, 499}), nullptr);
  EXPECT_EQ(schedule.TakeDue({103, 500})->link_id, "b");
  EXPECT_EQ(schedule.TakeDue({103, 500}), nullptr);
  EXPECT_EQ(schedule.Take("b"), nullptr);
  EXPECT_EQ(schedule.Take("a")->link_id, "a");
  EXPECT_EQ(schedule.TakeDue({100 + kMonth, 499}), nullptr);
  EXPECT_NE(schedule.TakeDue({100 + kMonth, 1500}), nullptr) << "milliseconds may exceed 999";
}

}  // namespace
