#pragma once

#include <cstdint>

#include "00shcode/ftmsgq/typed_msg.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/engine_thread.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"

// To the wait thread: a link that has ended.
using FTReapLinkMsg = FTTypedMsg<FTMSG_REAP_LINK, FTLinkThreadPtr>;

// Joins and deletes links that have ended: a link's own threads cannot, and the engine must not
// wait for them.
class CFTMtSockWaitThrd : public CFTEngineThread {
 public:
  explicit CFTMtSockWaitThrd(CFTSockIfContract* protocol);

 protected:
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
};
