#pragma once

#include <atomic>
#include <cstdint>
#include <deque>

#include "00shcode/ftmtsockimpl/engine_thread.h"
#include "00shcode/ftmtsockimpl/link.h"
#include "00shcode/ftmtsockimpl/link_orders.h"
#include "00shcode/ftmtsockimpl/send_queue.h"

// One link's send thread: writes the queued packages by priority, sends a heartbeat when the link
// has been quiet, closes the link after the last package when asked to, and reports the room that
// the queue has. Created, started, joined and destroyed by the link's receive thread.
class CFTMtSockSendThrd : public CFTEngineThread {
 public:
  // The link outlives this object.
  explicit CFTMtSockSendThrd(CFTLink* link);
  // Precondition: joined. Releases what is still queued.
  ~CFTMtSockSendThrd() override;

  // Any thread. kSendQueued: the package is this thread's. kSendTooMuch: refused, the queue is
  // full.
  std::int32_t QueuePkg(CFTBuffer* pkg, FTReleaseFunction release, FTSendMode mode,
                        std::int32_t priority);

  // Any thread. The same for a copy of the package, given in pieces of together length bytes, at
  // most CFTSendQueue::kChunkBytes.
  std::int32_t QueueCopy(const platform::ConstBytePiece* pieces, int count, std::int32_t length,
                         FTSendMode mode, std::int32_t priority);

  // Any thread. Has the link closed once everything queued has been written.
  void CloseAfterSending();

  void StopThread() override;

 protected:
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  bool TakeUnsent(FTSendItem* item);
  void Drop(const FTSendItem& item);
  template <typename Append>
  std::int32_t Queue(std::int32_t length, FTSendMode mode, Append append);
  bool IsEverythingSent();
  bool WaitUntilWritable();
  void RefillSendList();
  bool TakeQueued();
  void WritePkgs();
  bool WriteOnce();
  void AccountFor(std::int32_t sent);
  void DropSent(std::int32_t sent);
  void CloseWhenDone(void (*write_line)(CMyThread* log, const std::string& remote));
  void OnSendCheck();
  void MakeHeartbeat();
  void ReportSpace();

  CFTLink* const m_link;
  std::atomic<bool> m_close_after_sending{false};

  CFTLock m_queue_lock;
  CFTSendQueue m_queue FT_GUARDED_BY(m_queue_lock);
  std::int64_t m_queued_bytes FT_GUARDED_BY(m_queue_lock) = 0;  // the batch being written included
  bool m_asleep FT_GUARDED_BY(m_queue_lock) = false;            // until somebody has set m_wake
  CFTEvent m_wake;

  // This thread's alone.
  std::deque<FTSendItem> m_send_list;  // the batch being written; its first item may be partly sent
  bool m_would_block = false;
  platform::AdaptiveYield m_yield;
  FTTime m_last_send_activity;
};
