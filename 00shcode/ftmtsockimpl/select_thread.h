#pragma once

#include "00shcode/ftmtsockimpl/engine_thread.h"
#include "00shcode/ftmtsockimpl/sock.h"

// Base of the engine's threads that wait for several sockets at once. Messages and stop requests
// end their waits.
class CFTSelectThread : public CFTEngineThread {
 protected:
  using CFTEngineThread::CFTEngineThread;

  // Own thread. FTSockSelect; 0 also when there is something else to do.
  std::int32_t Select(FTSockSet* read, FTSockSet* write, std::int32_t timeout_ms);

  // Own thread. Blocks for that long; only a stop request ends it early.
  void Pause(std::int32_t milliseconds);

  void WakeUp() override;

 private:
  platform::Waker m_waker;
};
