#include "00shcode/ftmsgq/sub_queues.h"

#include <algorithm>

namespace {

constexpr std::int32_t kMinWeight = 1;
constexpr std::int32_t kMaxWeight = 10;
constexpr std::int32_t kMinShare = 200;

}  // namespace

std::int32_t SubQueueShare(std::int32_t quota, std::int32_t pending, std::int32_t sub_queues,
                           std::int32_t weight) {
  if (sub_queues == 1 || pending < quota) return quota;
  const std::int32_t part = 2 * quota / sub_queues;
  return std::max(part * std::clamp(weight, kMinWeight, kMaxWeight), kMinShare);
}

void CFTSubQueues::Append(const std::string& key, std::int32_t weight, const FTMsg& msg) {
  SubQueue& sub_queue = m_sub_queues[key];
  sub_queue.weight = std::clamp(weight, kMinWeight, kMaxWeight);
  sub_queue.messages.push_back(msg);
  ++m_pending;
}

void CFTSubQueues::Collect(std::int32_t quota, std::vector<FTMsg>* batch) {
  const auto count = static_cast<std::int32_t>(m_sub_queues.size());
  for (auto& [key, sub_queue] : m_sub_queues) {
    Take(&sub_queue, SubQueueShare(quota, m_pending, count, sub_queue.weight), batch);
  }
}

void CFTSubQueues::Take(SubQueue* sub_queue, std::int32_t share, std::vector<FTMsg>* batch) {
  std::deque<FTMsg>& messages = sub_queue->messages;
  bool quit = false;
  for (std::int32_t taken = 0; taken < share && !messages.empty() && !quit; ++taken) {
    quit = messages.front().id == FTMSG_QUIT;
    batch->push_back(messages.front());
    messages.pop_front();
    --m_pending;
  }
}

void CFTSubQueues::Sweep() {
  for (auto entry = m_sub_queues.begin(); entry != m_sub_queues.end();) {
    const bool remove = !entry->first.empty() && entry->second.messages.empty();
    entry = remove ? m_sub_queues.erase(entry) : std::next(entry);
  }
}

void CFTSubQueues::TakeAll(std::vector<FTMsg>* batch) {
  for (auto& [key, sub_queue] : m_sub_queues) {
    batch->insert(batch->end(), sub_queue.messages.begin(), sub_queue.messages.end());
    sub_queue.messages.clear();
  }
  m_pending = 0;
}
