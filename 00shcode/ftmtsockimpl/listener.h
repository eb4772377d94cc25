#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/link_orders.h"
#include "00shcode/ftmtsockimpl/select_thread.h"

// Accepts connections on all listening sockets and hands each to the engine as an incoming link.
// First stage of every close request: an id that names no listening socket goes on to the
// connector.
class CFTMtSockListen : public CFTSelectThread {
 public:
  // All outlive this object.
  CFTMtSockListen(CFTSockIfContract* protocol, CFTMsgQ* engine, CFTMsgQ* connector);
  // Precondition: joined.
  ~CFTMtSockListen() override;

 protected:
  void OnExitThread() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  void AcceptOn(const FTLinkInfo& entry);
  void Announce(const FTLinkInfo& entry, FTSocket socket, const FTSockAddr& peer);
  void CloseOrPassOn(std::unique_ptr<std::string> link_id, FTCloseMode mode);

  CFTMsgQ* const m_engine;
  CFTMsgQ* const m_connector;

  // This thread's alone.
  std::list<FTListenerPtr> m_listening;
};
