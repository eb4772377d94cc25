#include "00shcode/ftmsgq/sub_queues.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using IdList = std::vector<std::uint32_t>;

constexpr std::int32_t kQuota = 10000;

void Append(CFTSubQueues* queues, const std::string& key, const IdList& ids,
            std::int32_t weight = 1) {
  for (const std::uint32_t id : ids) {
    FTMsg msg;
    msg.id = id;
    queues->Append(key, weight, msg);
  }
}

IdList Collect(CFTSubQueues* queues) {
  std::vector<FTMsg> batch;
  queues->Collect(kQuota, &batch);
  IdList ids;
  for (const FTMsg& msg : batch) ids.push_back(msg.id);
  return ids;
}

}  // namespace

TEST(SubQueueShare, IsTheQuotaUntilTheBacklogReachesIt) {
  const std::int32_t cases[][4] = {
      // pending, sub-queues, weight, share
      {9999, 200, 10, 10000}, {1000000, 1, 10, 10000}, {10000, 2, 3, 30000},  {10000, 3, 1, 6666},
      {10000, 3, 2, 13332},   {10000, 7, 1, 2857},     {10000, 200, 2, 200},  {10000, 200, 3, 300},
      {10000, 5, 0, 4000},    {10000, 5, -3, 4000},    {10000, 5, 10, 40000}, {10000, 5, 15, 40000},
      {30000, 20001, 10, 200}};
  for (const auto& [pending, sub_queues, weight, share] : cases) {
    EXPECT_EQ(SubQueueShare(kQuota, pending, sub_queues, weight), share)
        << pending << " pending, " << sub_queues << " sub-queues, weight " << weight;
  }
}

TEST(SubQueues, ReadTheBacklogAfreshForEachSubQueue) {
  CFTSubQueues queues;
  Append(&queues, "a", IdList(4000, 101));
  Append(&queues, "b", IdList(8000, 101));
  for (const char* const key : {"c", "d", "e"}) Append(&queues, key, {101});
  EXPECT_EQ(Collect(&queues).size(), 12003U) << "what a leaves is below the quota";
}

TEST(SubQueues, ShareByTheLastWeightAndStarveNobody) {
  CFTSubQueues queues;
  Append(&queues, "a", IdList(50000, 101), 10);
  Append(&queues, "a", {101}, 2);
  for (const char* const key : {"b", "c", "d", "e"}) Append(&queues, key, {102});
  IdList expected(8000, 101);
  expected.insert(expected.end(), 4, 102);
  EXPECT_EQ(Collect(&queues), expected);
}

TEST(SubQueues, AreServedInTheOrderOfTheirKeys) {
  CFTSubQueues queues;
  const std::string keys[] = {"b", "\xC3", "aa", "", "a", "B", std::string("a\0", 2), "~"};
  std::uint32_t id = 100;
  for (const std::string& key : keys) Append(&queues, key, {id++});
  EXPECT_EQ(Collect(&queues), (IdList{103, 105, 104, 106, 102, 100, 107, 101}));
}
