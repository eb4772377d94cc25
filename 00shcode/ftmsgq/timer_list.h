#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "00shcode/ftmsgq/msg.h"
#include "00shcode/ftmsgq/msg_fifo.h"
#include "00shcode/mytoolkit/clock.h"

// One-shot timers in the order of arming. Not locked.
class CFTTimerList {
 public:
  explicit CFTTimerList(const FTTime& now) : m_last_scan(now) {}

  // timer is the message that the timer becomes: param1 the timer id, param2 the delay in ms.
  void Add(FTMsg timer, const FTTime& now);

  // Moves the due timers to the end of the batch; scans at most once in 10 ms.
  void TakeDue(const FTTime& now, CFTMsgFifo* batch);

  // How long until a timer may be due, at most so many ms; at least 1.
  std::int32_t MsUntilDue(const FTTime& now, std::int32_t most_ms) const;

 private:
  struct Timer {
    FTMsg msg;
    FTTime armed_at;
  };

  FTTime m_last_scan;
  std::vector<Timer> m_timers;
};
