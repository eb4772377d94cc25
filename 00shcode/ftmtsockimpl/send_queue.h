#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "00shcode/mytoolkit/buffer.h"
#include "platform/platform.h"

// One package on its way out, or a chunk: small packages that were copied one behind the other.
// Owns the buffer if it has a release function.
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
  static constexpr std::int32_t kChunkBytes = 65536;  // small packages travel together in so many

  // The priority is clamped to 1 to 5.
  void Append(std::int32_t priority, const FTSendItem& item);

  // Copies a package, given in pieces of together length bytes, at most kChunkBytes.
  void AppendCopy(std::int32_t priority, const platform::ConstBytePiece* pieces, int count,
                  std::int32_t length);

  // Moves whole items to the end of the list until they make kBatchBytes or more. An item of
  // kBatchBytes or more that does not belong to the first priority served waits for a later batch.
  void TakeBatch(std::deque<FTSendItem>* batch);

  // Takes the first item out; false when there is none. Needs no memory.
  bool TakeOne(FTSendItem* item);

  bool IsEmpty() const { return m_count == 0; }

  // True once anything was queued, even when it has been taken since.
  bool WasUsed() const { return m_used; }

 private:
  struct List {
    std::deque<FTSendItem> items;
    CFTBuffer* open_chunk = nullptr;  // the last item's, if it can take more packages
  };

  FTSendItem TakeFirst(List* list);
  List& ListOf(std::int32_t priority);

  std::array<List, kLastPriority - kFirstPriority + 1> m_lists;
  std::size_t m_count = 0;
  bool m_used = false;
};
