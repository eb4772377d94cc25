#pragma once

#include <cstdint>
#include <vector>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "tests/support/clock.h"

namespace testkit {

using IdList = std::vector<std::uint32_t>;
using Fields = std::vector<std::uintptr_t>;

// A queue without a thread, and its clock: the test turns the crank, one cycle at a time.
class CrankedQueue : private ManualClock, public CFTMsgQ {
 public:
  CrankedQueue() {
    SetIdleWaitMs(0);
    OnEnterThread();
  }

  // Lets the clock go on, runs one cycle and returns what it handled: the timer ids of timer
  // messages, the message ids of others.
  IdList Cycle(std::uint32_t milliseconds = 0) {
    Advance(milliseconds);
    m_handled.clear();
    RunOnce();
    return m_handled;
  }

  using CFTMsgQ::RunOnce;

 protected:
  void OnMsg(FTMsg& msg, std::int32_t) override {
    m_handled.push_back(msg.id == FTMSG_TIMER ? msg.param1 : msg.id);
  }

 private:
  IdList m_handled;
};

}  // namespace testkit
