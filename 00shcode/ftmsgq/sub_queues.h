#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "00shcode/ftmsgq/msg.h"
#include "00shcode/ftmsgq/msg_fifo.h"

namespace ft {

// How many messages one sub-queue may give in a cycle: everything up to the quota while the backlog
// is short, else its weighted part of twice the quota, but at least 200.
std::int32_t SubQueueShare(std::int32_t quota, std::int32_t pending, std::int32_t sub_queues,
                           std::int32_t weight);

}  // namespace ft

// Messages in sub-queues by key, served in the order of the keys. Not locked.
class CFTSubQueues {
 public:
  // Both move the messages behind those queued under the key. The weight is clamped to 1 to 10 and
  // becomes the sub-queue's.
  void Append(const std::string& key, std::int32_t weight, FTMsg msg);
  void AppendAll(const std::string& key, std::int32_t weight, std::vector<FTMsg>* msgs);

  // Moves each sub-queue's share to the end of the batch. A quit message is the last one taken
  // from its sub-queue.
  void Collect(std::int32_t quota, CFTMsgFifo* batch);

  // Forgets empty sub-queues, the one with the empty key excepted.
  void Sweep();

  // Gives back the memory that a burst of messages has left behind.
  void Shrink();

  std::int32_t GetPendingCount() const { return m_pending; }

 private:
  struct SubQueue {
    std::int32_t weight = 1;
    std::int32_t quits = 0;
    CFTMsgFifo messages;
  };

  SubQueue* Open(const std::string& key, std::int32_t weight);
  void Take(SubQueue* sub_queue, std::int32_t share, CFTMsgFifo* batch);

  std::map<std::string, SubQueue> m_sub_queues;
  std::int32_t m_pending = 0;
};
