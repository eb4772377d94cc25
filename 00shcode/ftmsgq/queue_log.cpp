#include "00shcode/ftmsgq/queue_log.h"

#include "00shcode/mytoolkit/log.h"
#include "00shcode/mytoolkit/thread.h"

namespace QueueLog {

void MsgNotDealt(CMyThread* log, const char* what, std::uint32_t id) {
  log->WriteLog("ftmsgq.cpp", 73, ft::kLogNotice,
                "$$$$$$$$$$$$$$$$$$$$$ the msg[%s=%ld] has not been deal. "
                "$$$$$$$$$$$$$$$$$$$$$\n",
                what, static_cast<long>(static_cast<std::int32_t>(id)));
}

}  // namespace QueueLog
