#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <vector>

#include "00shcode/ftmsgq/msg.h"

// Messages, first in, first out. They lie in runs, which change hands as they are: what was added
// together is mostly moved together, and no message by itself. Not locked.
class CFTMsgFifo {
 public:
  std::size_t GetCount() const { return m_count; }
  bool IsEmpty() const { return m_count == 0; }

  void Push(FTMsg msg);

  // Moves all of them behind the others, in their order. Leaves an empty list, with the capacity of
  // an earlier one if there is one left.
  void PushAll(std::vector<FTMsg>* msgs);

  // The oldest. Precondition: not empty.
  FTMsg Pop();

  // Moves the oldest so many behind those of the other, and gets the memory that the other has no
  // use for.
  void MoveTo(std::size_t count, CFTMsgFifo* other);

  // Gives back the memory that a burst of messages has left behind.
  void Shrink();

 private:
  // What lies before head has been taken.
  struct Run {
    std::size_t head = 0;
    std::vector<FTMsg> msgs;

    std::size_t GetCount() const { return msgs.size() - head; }
  };

  std::vector<FTMsg>& TakeSpare();
  void TakeSpareIn(std::vector<FTMsg>* spare);

  std::deque<Run> m_runs;  // none is empty
  std::size_t m_count = 0;

  // Emptied runs, which later ones use again.
  std::array<std::vector<FTMsg>, 8> m_spares;
};
