#include "00shcode/ftmtsockimpl/send_queue.h"

#include <algorithm>
#include <cstring>

CFTSendQueue::List& CFTSendQueue::ListOf(std::int32_t priority) {
  const std::int32_t clamped = std::clamp(priority, kFirstPriority, kLastPriority);
  return m_lists[static_cast<std::size_t>(clamped - kFirstPriority)];
}

void CFTSendQueue::Append(std::int32_t priority, const FTSendItem& item) {
  List& list = ListOf(priority);
  list.items.push_back(item);
  list.open_chunk = nullptr;
  ++m_count;
  m_used = true;
}

void CFTSendQueue::AppendCopy(std::int32_t priority, const platform::ConstBytePiece* pieces,
                              int count, std::int32_t length) {
  List& list = ListOf(priority);
  if (list.open_chunk == nullptr || list.open_chunk->GetFreeTail() < length) {
    FTBufferPtr chunk = CFTBuffer::Make(kChunkBytes);
    Append(priority, {chunk.get(), &ReleaseFTBuffer});
    list.open_chunk = chunk.release();
  }
  for (int i = 0; i < count; ++i) {
    std::memcpy(list.open_chunk->GetWritePos(), pieces[i].data,
                static_cast<std::size_t>(pieces[i].length));
    list.open_chunk->CommitWrite(pieces[i].length);
  }
}

void CFTSendQueue::TakeBatch(std::deque<FTSendItem>* batch) {
  std::int64_t total = 0;
  bool first_list = true;
  for (List& list : m_lists) {
    if (list.items.empty()) continue;
    while (!list.items.empty()) {
      const std::int32_t length = list.items.front().buffer->GetDataLen();
      if (length >= kBatchBytes && !first_list) return;
      batch->push_back(TakeFirst(&list));
      total += length;
      if (total >= kBatchBytes) return;
    }
    first_list = false;
  }
}

bool CFTSendQueue::TakeOne(FTSendItem* item) {
  for (List& list : m_lists) {
    if (list.items.empty()) continue;
    *item = TakeFirst(&list);
    return true;
  }
  return false;
}

FTSendItem CFTSendQueue::TakeFirst(List* list) {
  const FTSendItem item = list->items.front();
  list->items.pop_front();
  if (list->items.empty()) list->open_chunk = nullptr;
  --m_count;
  return item;
}
