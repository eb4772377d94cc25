#include "00shcode/ftmtsockimpl/select_thread.h"

// The waker is cleared before the look at what there is to do: a later wake-up stays.
std::int32_t CFTSelectThread::Select(FTSockSet* read, FTSockSet* write, std::int32_t timeout_ms) {
  m_waker.Clear();
  const bool may_sleep = BeginSleep();
  const std::int32_t ready = FTSockSelect(read, write, may_sleep ? timeout_ms : 0, &m_waker);
  EndSleep();
  return ready;
}

void CFTSelectThread::Pause(std::int32_t milliseconds) {
  const FTTime start = ft::GetTickTime();
  for (std::int64_t left = milliseconds; left > 0;
       left = milliseconds - ft::ElapsedMs(ft::GetTickTime(), start)) {
    m_waker.Clear();
    if (IsRunning() == 0) return;
    platform::WaitForSocket(kNoSocket, platform::Readiness::kReadable, static_cast<int>(left),
                            &m_waker);
  }
}

void CFTSelectThread::WakeUp() {
  CFTEngineThread::WakeUp();
  m_waker.Wake();
}
