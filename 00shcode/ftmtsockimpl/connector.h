#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/link_orders.h"
#include "00shcode/ftmtsockimpl/select_thread.h"

// Turns connect requests into connected sockets without ever blocking: starts each connect, watches
// all that are in progress with one wait, hands completed ones to the engine and gives up on those
// that take longer than the connect time-out. Every outcome but success reaches the protocol object
// as FTMSG_CONNECT_FAILED.
class CFTMtSockConn : public CFTSelectThread {
 public:
  // Both outlive this object.
  CFTMtSockConn(CFTSockIfContract* protocol, CFTMsgQ* engine);
  // Precondition: joined. Closes the sockets of connects in progress.
  ~CFTMtSockConn() override;

 protected:
  void OnExitThread() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  void StartConnect(std::unique_ptr<FTLinkInfo> link);
  void FillWatchSet(FTSockSet* set);
  void TakeReady(std::int32_t ready, const FTSockSet& writable);
  void TakeResult(FTLinkReqPtr* req);
  void SweepTimeouts();
  void CancelOrPassOn(std::unique_ptr<std::string> link_id, FTCloseMode mode);
  void ReportFailure(const FTLinkInfo& link);
  void RemoveDone();

  CFTMsgQ* const m_engine;

  // This thread's alone.
  std::list<FTLinkReqPtr> m_pending;  // in the order of starting
  bool m_sweeps = false;              // the timer is set
};
