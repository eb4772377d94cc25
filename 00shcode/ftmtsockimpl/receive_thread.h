#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "00shcode/ftmtsockimpl/engine_thread.h"
#include "00shcode/ftmtsockimpl/link.h"
#include "00shcode/ftmtsockimpl/pkg_cutter.h"

class CFTMtSockSendThrd;

// One link's receive thread: reads what the peer sends, cuts it into packages and hands them to the
// protocol object, watches for silence, and reports the link's beginning and end. Owns the link and
// its send thread.
class CFTMtSockOneLinkThrd : public CFTEngineThread {
 public:
  // Takes the request's socket over. engine, which is told when the thread has finished, and state
  // outlive this object.
  CFTMtSockOneLinkThrd(CFTSockIfContract* protocol, CFTMsgQ* engine, FTEngineState* state,
                       FTLinkReq* req);
  // Precondition: joined. Releases what was not sent.
  ~CFTMtSockOneLinkThrd() override;

  // The following may be called from any thread.

  CFTLink& Link() { return m_link; }
  CFTMtSockSendThrd& SendThread() { return *m_send_thread; }

  // Stops the send thread too.
  void StopThread() override;

 protected:
  std::int32_t OnEnterThread() override;
  void OnExitThread() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  std::int32_t RefuseLink();
  void ReceiveOnce();
  bool RecvAndCut();
  bool EndAfterCut(CFTPkgCutter::Result result);
  void Deliver();
  void PostPackages();
  void DeliverDirectly(FTBufferPtr pkg);
  std::int64_t BacklogLimit() const;
  bool IsThrottled();
  void PauseReading();
  void CheckRecvTimeout();
  void ReportClosed();
  void TellEngine();

  CFTMsgQ* const m_engine;
  CFTLink m_link;

  // This thread's alone.
  bool m_read_last_pass = true;  // and perhaps left something
  bool m_may_yield = false;      // not yet done since the last read that got something
  platform::AdaptiveYield m_yield;
  CFTPkgCutter m_cutter;
  std::vector<FTBufferPtr> m_packages;  // cut and not yet delivered
  std::vector<FTMsg> m_msgs;            // empty between passes; keeps its capacity
  std::int64_t m_longest_pkg = 0;       // of those that the last pass with any has cut
  bool m_throttled = false;
  FTTime m_throttled_at;
  std::int32_t m_pause_ms = 0;  // the last pause since the last read; 0: none
  FTTime m_last_wait_start;
  FTTime m_last_data;
  std::int64_t m_throttled_ms = 0;  // since then

  const std::unique_ptr<CFTMtSockSendThrd> m_send_thread;
};

// How links are owned: whoever lets go of one joins its threads first.
struct FTJoinAndDelete {
  void operator()(CFTMtSockOneLinkThrd* link) const;
};
using FTLinkThreadPtr = std::unique_ptr<CFTMtSockOneLinkThrd, FTJoinAndDelete>;
