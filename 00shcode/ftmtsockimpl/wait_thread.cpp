#include "00shcode/ftmtsockimpl/wait_thread.h"

CFTMtSockWaitThrd::CFTMtSockWaitThrd(CFTSockIfContract* protocol)
    : CFTEngineThread(protocol, "CFTMtSockWaitThrd") {
  SetIdleWaitMs(kUntilWoken);
}

void CFTMtSockWaitThrd::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_REAP_LINK) {
    FTReapLinkMsg::Take(msg);  // and lets go of the link
  } else {
    CFTEngineThread::OnMsg(msg, draining);
  }
}
