#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>

#include "00shcode/mytoolkit/buffer.h"

// One package on its way out. Owns the package if it has a release function.
struct FTSendItem {
  CFTBuffer* buffer;  // its data are what remains to be sent
  // Called with the buffer when the item is done with; null: the sender keeps the buffer.
  FTReleaseFunction release;

  void Release() const {
    if (release != nullptr) release(buffer);
  }
};

// Packages by priority, lower numbers first, in the order of queueing within one. Not locked.
class CFTSendQueue {
 public:
  static constexpr std::int32_t kFirstPriority = 1;
  static constexpr std::int32_t kLastPriority = 5;
  static constexpr std::int32_t kBatchBytes = 12500000;

  // The priority is clamped to 1 to 5.
  void Append(std::int32_t priority, const FTSendItem& item);

  // Moves whole packages to the end of the list until they make kBatchBytes or more. A package of
  // kBatchBytes or more that does not belong to the first priority served waits for a later batch.
  void TakeBatch(std::deque<FTSendItem>* batch);

  bool IsEmpty() const { return m_count == 0; }

  // True once anything was queued, even when it has been taken since.
  bool WasUsed() const { return !m_lists.empty(); }

 private:
  std::map<std::int32_t, std::deque<FTSendItem>> m_lists;
  std::size_t m_count = 0;
};
