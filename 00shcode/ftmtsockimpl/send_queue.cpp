#include "00shcode/ftmtsockimpl/send_queue.h"

#include <algorithm>

void CFTSendQueue::Append(std::int32_t priority, const FTSendItem& item) {
  m_lists[std::clamp(priority, kFirstPriority, kLastPriority)].push_back(item);
  ++m_count;
}

void CFTSendQueue::TakeBatch(std::deque<FTSendItem>* batch) {
  std::int64_t total = 0;
  bool first_list = true;
  for (auto& [priority, list] : m_lists) {
    if (list.empty()) continue;
    while (!list.empty()) {
      const std::int32_t length = list.front().buffer->GetDataLen();
      if (length >= kBatchBytes && !first_list) return;
      batch->push_back(list.front());
      list.pop_front();
      --m_count;
      total += length;
      if (total >= kBatchBytes) return;
    }
    first_list = false;
  }
}
