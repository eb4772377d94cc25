#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/link_info.h"

class CFTSockIfContract;

// Accepts connections on all listening sockets and hands each to the engine as an incoming link.
// First stage of every close request: what is no listening entry goes on to the connector. While it
// has sockets to watch, a message to it waits for up to half a second.
class CFTMtSockListen : public CFTMsgQ {
 public:
  CFTMtSockListen(CFTSockIfContract* owner, CFTMsgQ* engine, CFTMsgQ* connector);
  ~CFTMtSockListen() override;

  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 protected:
  void OnExitThread() override;
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  void AcceptOn(const FTLinkInfo& entry);
  void Announce(const FTLinkInfo& entry, FTSocket socket, const FTSockAddr& peer);
  void CloseOrPassOn(std::unique_ptr<std::string> link_id, std::int32_t after_sending);
  void ReleaseQueuedMsgs();

  CFTSockIfContract* const m_owner;
  CFTMsgQ* const m_engine;
  CFTMsgQ* const m_connector;
  std::list<std::unique_ptr<FTLinkInfo>> m_listening;
};
