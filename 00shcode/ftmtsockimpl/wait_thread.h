#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "00shcode/ftmsgq/typed_msg.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/engine_thread.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"

// To the wait thread: a link whose receive thread has finished.
using FTReapLinkMsg = FTTypedMsg<FTMSG_REAP_LINK, FTLinkThreadPtr>;

// Joins and deletes finished links, some seconds after they finished: a link's own threads cannot,
// and the engine must not wait for them. At its end it does so at once for all that it holds.
class CFTMtSockWaitThrd : public CFTEngineThread {
 public:
  explicit CFTMtSockWaitThrd(CFTSockIfContract* protocol);
  // Precondition: joined. Joins and deletes the links that are left, taken up or not.
  ~CFTMtSockWaitThrd() override;

 protected:
  void OnExitThread() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;

 private:
  void TakeUp(FTLinkThreadPtr link);
  void ReapLinks(bool with_grace);

  // This thread's alone.
  std::map<std::string, FTLinkThreadPtr> m_links;
};
