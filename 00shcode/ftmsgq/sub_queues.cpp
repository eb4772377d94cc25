#include "00shcode/ftmsgq/sub_queues.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::int32_t kMinWeight = 1;
constexpr std::int32_t kMaxWeight = 10;
constexpr std::int32_t kMinShare = 200;
constexpr std::size_t kIdleCapacity = 1024;

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
  // Before the vector grows, what was taken from its front makes room, if that is worth the moves.
  std::vector<FTMsg>& messages = sub_queue.messages;
  if (messages.size() == messages.capacity() && sub_queue.head * 2 > messages.size()) {
    messages.erase(messages.begin(),
                   messages.begin() + static_cast<std::ptrdiff_t>(sub_queue.head));
    sub_queue.head = 0;
  }
  return &sub_queue;
}

void CFTSubQueues::Append(const std::string& key, std::int32_t weight, FTMsg msg) {
  SubQueue* const sub_queue = Open(key, weight);
  const bool quit = msg.id == FTMSG_QUIT;
  sub_queue->messages.push_back(std::move(msg));
  if (quit) ++sub_queue->quits;
  ++m_pending;
}

void CFTSubQueues::AppendAll(const std::string& key, std::int32_t weight,
                             std::vector<FTMsg>* msgs) {
  SubQueue* const sub_queue = Open(key, weight);
  const auto quits = std::count_if(msgs->begin(), msgs->end(),
                                   [](const FTMsg& msg) { return msg.id == FTMSG_QUIT; });
  sub_queue->quits += static_cast<std::int32_t>(quits);
  m_pending += static_cast<std::int32_t>(msgs->size());
  if (sub_queue->messages.empty()) {
    sub_queue->messages.swap(*msgs);
    return;
  }
  sub_queue->messages.insert(sub_queue->messages.end(), std::make_move_iterator(msgs->begin()),
                             std::make_move_iterator(msgs->end()));
  msgs->clear();
}

void CFTSubQueues::Collect(std::int32_t quota, std::vector<FTMsg>* batch) {
  const auto count = static_cast<std::int32_t>(m_sub_queues.size());
  for (auto& [key, sub_queue] : m_sub_queues) {
    Take(&sub_queue, ft::SubQueueShare(quota, m_pending, count, sub_queue.weight), batch);
  }
}

void CFTSubQueues::Take(SubQueue* sub_queue, std::int32_t share, std::vector<FTMsg>* batch) {
  std::vector<FTMsg>& messages = sub_queue->messages;
  const std::size_t queued = messages.size() - sub_queue->head;
  const std::size_t most = std::min(queued, static_cast<std::size_t>(share));
  // A whole sub-queue changes hands as it is: nothing is moved, and both keep their capacity.
  if (batch->empty() && sub_queue->head == 0 && sub_queue->quits == 0 && most == queued) {
    batch->swap(messages);
    m_pending -= static_cast<std::int32_t>(most);
    return;
  }
  for (std::size_t taken = 0; taken < most; ++taken) {
    FTMsg& msg = messages[sub_queue->head++];
    const bool quit = msg.id == FTMSG_QUIT;
    batch->push_back(std::move(msg));
    --m_pending;
    if (!quit) continue;
    --sub_queue->quits;
    break;
  }
  if (!sub_queue->IsEmpty()) return;
  messages.clear();
  sub_queue->head = 0;
}

void CFTSubQueues::Sweep() {
  for (auto entry = m_sub_queues.begin(); entry != m_sub_queues.end();) {
    const bool remove = !entry->first.empty() && entry->second.IsEmpty();
    entry = remove ? m_sub_queues.erase(entry) : std::next(entry);
  }
}

void CFTSubQueues::Shrink() {
  for (auto& [key, sub_queue] : m_sub_queues) {
    std::vector<FTMsg>& messages = sub_queue.messages;
    if (messages.empty() && messages.capacity() > kIdleCapacity)
      std::vector<FTMsg>().swap(messages);
  }
}
