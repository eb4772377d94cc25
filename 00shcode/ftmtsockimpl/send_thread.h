#pragma once

#include <cstdint>
#include <deque>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/send_queue.h"

class CFTMtSockImpl;
class CFTMtSockOneLinkThrd;
class CFTSockIfContract;

// Writes one link's packages to its socket, by priority and in pieces; sends a heartbeat when the
// link has been quiet; closes the link after the last package when asked to; reports the room that
// its queue has. Created, started, joined and destroyed by the link's receive thread.
class CFTMtSockSendThrd : public CFTMsgQ {
 public:
  CFTMtSockSendThrd(CFTMtSockOneLinkThrd* owner, CFTMtSockImpl* engine);
  // Releases what is still queued.
  ~CFTMtSockSendThrd() override;

  // Any thread. 0: queued, the package is this thread's; 1: refused, the queue is full. force
  // skips the limit.
  std::int32_t QueuePkg(CFTBuffer* pkg, FTReleaseFunction release, std::int32_t force,
                        std::int32_t priority);

  // Any thread. Has the link closed once everything queued has been written.
  void CloseAfterSending() { m_close_after_sending.Set(1); }

  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 protected:
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  bool IsQueueEmpty() const FT_REQUIRES(m_queue_lock);
  bool IsEverythingSent();
  bool WaitUntilWritable();
  void RefillSendList();
  void WritePkgs();
  bool WritePiece(FTSendItem* item);
  void FinishPiece(FTSendItem* item, std::int32_t sent);
  FTSendItem* GetFirstItem();
  void OnSendCheck();
  void MakeHeartbeat();
  void ReportSpace();
  void StopIdle();
  void ReleaseUnsent(const std::deque<FTSendItem>& items);

  CFTMtSockOneLinkThrd* const m_owner;
  CFTMtSockImpl* const m_engine;
  CFTSockIfContract* const m_interface;
  CFTLockedValue<std::int32_t> m_queue_limit;
  CFTLockedValue<std::int32_t> m_close_after_sending;
  CFTLockedValue<std::int32_t> m_item_count;  // queued and not yet completely written

  CFTLock m_queue_lock;
  CFTEvent m_wake;
  CFTSendQueue m_queue FT_GUARDED_BY(m_queue_lock);
  // The batch being written. Only this thread adds and removes items, so its first item stays put
  // while it is written without the lock.
  std::deque<FTSendItem> m_send_list FT_GUARDED_BY(m_queue_lock);
  std::int64_t m_queued_bytes FT_GUARDED_BY(m_queue_lock) = 0;

  bool m_would_block = false;
  FTTime m_last_send_activity;
};
