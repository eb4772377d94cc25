#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/link_info.h"

class CFTSockIfContract;

// Turns connect requests into connected sockets without ever blocking: starts each connect, watches
// all that are in progress with one wait, hands completed ones to the engine and gives up on those
// that take longer than the owner's connect time-out. Every outcome but success reaches the owner
// as FTMSG_CONNECT_FAILED.
class CFTMtSockConn : public CFTMsgQ {
 public:
  CFTMtSockConn(CFTSockIfContract* owner, CFTMsgQ* engine);
  ~CFTMtSockConn() override;

  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 protected:
  void OnExitThread() override;
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  void StartConnect(std::unique_ptr<FTLinkInfo> link);
  void FillWatchSet(FTSockSet* set);
  void TakeReady(std::int32_t ready, const FTSockSet& writable);
  void TakeResult(FTLinkReq* req);
  void SweepTimeouts();
  void CancelOrPassOn(std::unique_ptr<std::string> link_id, std::int32_t after_sending);
  void ReportFailure(const FTLinkInfo& link);
  void RemoveDone();
  void ReleaseQueuedMsgs();

  CFTSockIfContract* const m_owner;
  CFTMsgQ* const m_engine;
  std::list<std::unique_ptr<FTLinkReq>> m_pending;  // in the order of starting
};
