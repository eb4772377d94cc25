#include "00shcode/ftmsgq/sub_queues.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::int32_t kMinWeight = 1;
constexpr std::int32_t kMaxWeight = 10;
constexpr std::int32_t kMinShare = 200;

std::int32_t ClampWeight(std::int32_t weight) {
  return std::clamp(weight, kMinWeight, kMaxWeight);
}

}  // namespace

std::int32_t ft::SubQueueShare(std::int32_t quota, std::int32_t pending, std::int32_t sub_queues,
                               std::int32_t weight) {
  if (sub_queues == 1 || pending < quota) return quota;
  const std::int32_t part = 2 * quota / sub_queues;
  return std::max(part * ClampWeight(weight), kMinShare);
}

CFTSubQueues::SubQueue* CFTSubQueues::Open(const std::string& key, std::int32_t weight) {
  SubQueue& sub_queue = m_sub_queues[key];
  sub_queue.weight = ClampWeight(weight);
  return &sub_queue;
}

void CFTSubQueues::Append(const std::string& key, std::int32_t weight, FTMsg msg) {
  SubQueue* const sub_queue = Open(key, weight);
  const bool quit = msg.id == FTMSG_QUIT;
  sub_queue->messages.Push(std::move(msg));
  if (quit) ++sub_queue->quits;
  ++m_pending;
}

void CFTSubQueues::AppendAll(const std::string& key, std::int32_t weight,
                             std::vector<FTMsg>* msgs) {
  SubQueue* const sub_queue = Open(key, weight);
  const auto quits = std::count_if(msgs->begin(), msgs->end(),
                                   [](const FTMsg& msg) { return msg.id == FTMSG_QUIT; });
  const std::size_t count = msgs->size();
  sub_queue->messages.PushAll(msgs);
  sub_queue->quits += static_cast<std::int32_t>(quits);
  m_pending += static_cast<std::int32_t>(count);
}

void CFTSubQueues::Collect(std::int32_t quota, CFTMsgFifo* batch) {
  const auto count = static_cast<std::int32_t>(m_sub_queues.size());
  for (auto& [key, sub_queue] : m_sub_queues) {
    Take(&sub_queue, ft::SubQueueShare(quota, m_pending, count, sub_queue.weight), batch);
  }
}

void CFTSubQueues::Take(SubQueue* sub_queue, std::int32_t share, CFTMsgFifo* batch) {
  CFTMsgFifo& messages = sub_queue->messages;
  const std::size_t most = std::min(messages.GetCount(), static_cast<std::size_t>(share));
  const std::size_t left = messages.GetCount() - most;
  if (sub_queue->quits == 0) {
    messages.MoveTo(most, batch);
    m_pending -= static_cast<std::int32_t>(most);
    return;
  }
  for (bool quit = false; !quit && messages.GetCount() > left; --m_pending) {
    FTMsg msg = messages.Pop();
    quit = msg.id == FTMSG_QUIT;
    if (quit) --sub_queue->quits;
    batch->Push(std::move(msg));
  }
}

void CFTSubQueues::Sweep() {
  for (auto entry = m_sub_queues.begin(); entry != m_sub_queues.end();) {
    const bool remove = !entry->first.empty() && entry->second.messages.IsEmpty();
    entry = remove ? m_sub_queues.erase(entry) : std::next(entry);
  }
}

void CFTSubQueues::Shrink() {
  for (auto& [key, sub_queue] : m_sub_queues) sub_queue.messages.Shrink();
}
