#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "00shcode/ftmsgq/msg.h"
#include "00shcode/ftmsgq/sub_queues.h"
#include "00shcode/ftmsgq/timer_list.h"
#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/locked_value.h"
#include "00shcode/mytoolkit/thread.h"

// A thread that handles messages. Any thread posts; the object's own thread collects posted
// messages and due timers in cycles and hands each to OnMsg. Within one sub-queue messages are
// handled in the order of posting; in a cycle timers come first, then the sub-queues in the order
// of their keys. What is still queued when the thread ends is not handled: a derived class that
// is sent pointers takes them back with TakeQueuedMsgs before it goes.
class CFTMsgQ : public CMyThread {
 public:
  CFTMsgQ();
  ~CFTMsgQ() override;

  // Any thread, never blocks. Weights are clamped to 1 to 10; the last one posted under a key
  // decides the sub-queue's share. What the parameters point to belongs to this object from now on.
  void PostMsg(std::uint32_t id, const std::string& key, std::int32_t weight, std::uintptr_t p1 = 0,
               std::uintptr_t p2 = 0, std::uintptr_t p3 = 0, std::uintptr_t p4 = 0);

  // Ends the thread once it has handled what was posted before under the empty key.
  void PostQuit();

  // Any thread. One shot: after delay_ms milliseconds or more the thread gets an FTMSG_TIMER
  // message; a handler that wants the timer again sets it again. The thread is not woken for it.
  void SetTimer(std::uint32_t timer_id, std::int32_t delay_ms, std::uintptr_t p1 = 0,
                std::uintptr_t p2 = 0, std::uintptr_t p3 = 0, std::uintptr_t p4 = 0);

  // Any thread. How long a cycle waits for work after one that found none; 50 ms at first.
  void SetIdleWaitMs(std::int32_t milliseconds);

 protected:
  std::int32_t RunOnce() override;

  // Handles one message on the object's own thread. draining is 0 in every call: nothing is
  // handled once the loop has ended. An override hands ids it does not know to this version.
  virtual void OnMsg(const FTMsg& msg, std::int32_t draining);

  virtual void OnIdle();  // after a cycle that handled nothing
  virtual void OnLoop();  // after every cycle

  virtual std::int32_t OnMsgFields(std::uint32_t id, std::uint32_t param1, std::int32_t draining,
                                   std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3,
                                   std::uintptr_t p4);

  // Arms a fired timer anew with the same values.
  void SetTimerAgain(const FTMsg& timer_msg);

  // Removes and returns whatever is queued. For the end of a derived class, when its thread is
  // joined and nobody posts any more.
  std::vector<FTMsg> TakeQueuedMsgs();

 private:
  bool ProcessMsgs(std::int32_t draining, std::int32_t wait_ms);
  void CollectMsgs(std::int32_t wait_ms);
  void CollectTimers(const FTTime& now);

  CFTLockedValue<std::int32_t> m_idle_wait_ms;

  CFTLock m_timer_lock;
  CFTTimerList m_timers FT_GUARDED_BY(m_timer_lock);

  bool m_idle = true;
  std::vector<FTMsg> m_batch;

  CFTLock m_queue_lock;
  CFTEvent m_wake;
  CFTSubQueues m_sub_queues FT_GUARDED_BY(m_queue_lock);
  FTTime m_last_sweep FT_GUARDED_BY(m_queue_lock);
};
