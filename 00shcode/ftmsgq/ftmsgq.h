#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "00shcode/ftmsgq/msg.h"
#include "00shcode/ftmsgq/msg_fifo.h"
#include "00shcode/ftmsgq/sub_queues.h"
#include "00shcode/ftmsgq/timer_list.h"
#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/thread.h"
#include "platform/adaptive_yield.h"

// A thread that handles messages. Any thread posts; the object's own thread collects posted
// messages and due timers in cycles and hands each to OnMsg. Within one sub-queue messages are
// handled in the order of posting; in a cycle timers come first, then the sub-queues in the order
// of their keys. What is still queued when the thread ends is not handled; the messages are
// destroyed with the object, and with them what they own.
class CFTMsgQ : public CMyThread {
 public:
  CFTMsgQ();
  ~CFTMsgQ() override;

  // The following may be called from any thread and never block.

  // Queues a message. Weights are clamped to 1 to 10; the last one posted under a key decides the
  // sub-queue's share.
  void Post(const std::string& key, std::int32_t weight, FTMsg msg);

  // Queues all of them in their order, as if one after the other, and empties the list.
  void PostAll(const std::string& key, std::int32_t weight, std::vector<FTMsg>* msgs);

  // Queues a message whose parameters are mere numbers.
  void PostMsg(std::uint32_t id, const std::string& key, std::int32_t weight, std::uintptr_t p1 = 0,
               std::uintptr_t p2 = 0, std::uintptr_t p3 = 0, std::uintptr_t p4 = 0);

  // Ends the thread once it has handled what was posted before under the empty key.
  void PostQuit();

  // One shot: after delay_ms milliseconds or more the thread gets an FTMSG_TIMER message; a handler
  // that wants the timer again sets it again. The thread is not woken for it.
  void SetTimer(std::uint32_t timer_id, std::int32_t delay_ms, std::uintptr_t p1 = 0,
                std::uintptr_t p2 = 0, std::uintptr_t p3 = 0, std::uintptr_t p4 = 0);

  // How long a cycle waits for work after one that found none; 50 ms at first. A due timer ends the
  // wait if it was set before the wait began.
  static constexpr std::int32_t kUntilWoken = INT32_MAX;
  void SetIdleWaitMs(std::int32_t milliseconds) { m_idle_wait_ms.store(milliseconds); }

  // Wakes the thread too.
  void StopThread() override;

 protected:
  // One cycle. Within a handler it handles what is left of the cycle under way.
  std::int32_t RunOnce() override;

  // Handles one message on the object's own thread; what the handler does not take out of it is
  // released afterwards. draining is 0 in every call: nothing is handled once the loop has ended.
  // An override hands ids it does not know to this version.
  virtual void OnMsg(FTMsg& msg, std::int32_t draining);

  virtual void OnIdle();  // after a cycle that handled nothing
  virtual void OnLoop();  // after every cycle

  virtual std::int32_t OnMsgFields(std::uint32_t id, std::uint32_t param1, std::int32_t draining,
                                   std::uintptr_t p1, std::uintptr_t p2, std::uintptr_t p3,
                                   std::uintptr_t p4);

  // Arms a fired timer anew with the same values.
  void SetTimerAgain(const FTMsg& timer_msg);

  // For a thread that sleeps elsewhere than in its queue. Between BeginSleep, unless that returns
  // false because there is something to do, and EndSleep a post or a stop calls WakeUp.
  bool BeginSleep();
  void EndSleep();

  // Any thread. Ends the sleep that the thread is in; one that is about to begin may be ended too.
  virtual void WakeUp();

 private:
  bool ProcessMsgs(std::int32_t draining, std::int32_t wait_ms);
  void CollectMsgs(std::int32_t wait_ms);
  std::int32_t CollectTimers(const FTTime& now, std::int32_t wait_ms);
  bool IsQueueEmpty();
  void SleepUntilPosted(std::int32_t wait_ms) FT_REQUIRES(m_queue_lock);
  void WakeIf(bool asleep);

  std::atomic<std::int32_t> m_idle_wait_ms;

  CFTLock m_timer_lock;
  CFTTimerList m_timers FT_GUARDED_BY(m_timer_lock);

  // This thread's alone: the cycle under way.
  bool m_idle = true;
  platform::AdaptiveYield m_yield;
  CFTMsgFifo m_batch;

  CFTLock m_queue_lock;
  CFTSubQueues m_sub_queues FT_GUARDED_BY(m_queue_lock);
  FTTime m_last_sweep FT_GUARDED_BY(m_queue_lock);
  bool m_asleep FT_GUARDED_BY(m_queue_lock) = false;  // until somebody has called WakeUp
  CFTEvent m_wake;
};
