#include "00shcode/ftmsgq/msg_fifo.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t kFewMsgs = 32;        // are cheaper to move one by one
constexpr std::size_t kIdleCapacity = 256;  // messages
constexpr std::size_t kFetchedAhead = 4;    // messages

bool IsFull(const std::vector<FTMsg>& msgs) {
  return msgs.size() == msgs.capacity() && msgs.size() >= kIdleCapacity;
}

bool HasLessRoom(const std::vector<FTMsg>& one, const std::vector<FTMsg>& other) {
  return one.capacity() < other.capacity();
}

// What a message refers to was mostly written by another core. A parameter may be any number, so
// only numbers are added.
void Fetch(const FTMsg& msg) {
  __builtin_prefetch(reinterpret_cast<const void*>(msg.p2), 1);
  __builtin_prefetch(reinterpret_cast<const void*>(msg.p2 + 64), 1);
}

}  // namespace

void CFTMsgFifo::Push(FTMsg msg) {
  if (m_runs.empty() || IsFull(m_runs.back().msgs)) {
    Run run;
    run.msgs.swap(TakeSpare());
    run.msgs.push_back(std::move(msg));
    m_runs.push_back(std::move(run));
  } else {
    m_runs.back().msgs.push_back(std::move(msg));
  }
  ++m_count;
}

void CFTMsgFifo::PushAll(std::vector<FTMsg>* msgs) {
  if (msgs->size() <= kFewMsgs) {
    for (FTMsg& msg : *msgs) Push(std::move(msg));
    msgs->clear();
    return;
  }
  m_runs.emplace_back().msgs.swap(*msgs);
  m_count += m_runs.back().GetCount();
  msgs->swap(TakeSpare());
}

FTMsg CFTMsgFifo::Pop() {
  Run& run = m_runs.front();
  if (run.GetCount() > kFetchedAhead) Fetch(run.msgs[run.head + kFetchedAhead]);
  FTMsg msg = std::move(run.msgs[run.head++]);
  --m_count;
  if (run.GetCount() == 0) {
    run.msgs.clear();
    TakeSpareIn(&run.msgs);
    m_runs.pop_front();
  }
  return msg;
}

void CFTMsgFifo::MoveTo(std::size_t count, CFTMsgFifo* other) {
  for (std::vector<FTMsg>& spare : other->m_spares) TakeSpareIn(&spare);
  while (count > 0 && m_runs.front().GetCount() <= count) {
    const std::size_t moved = m_runs.front().GetCount();
    other->m_runs.push_back(std::move(m_runs.front()));
    m_runs.pop_front();
    m_count -= moved;
    other->m_count += moved;
    count -= moved;
  }
  for (; count > 0; --count) other->Push(Pop());
}

void CFTMsgFifo::Shrink() {
  for (std::vector<FTMsg>& spare : m_spares) {
    if (spare.capacity() > kIdleCapacity) std::vector<FTMsg>().swap(spare);
  }
}

// Empty, with capacity if any spare has some.
std::vector<FTMsg>& CFTMsgFifo::TakeSpare() {
  return *std::max_element(m_spares.begin(), m_spares.end(), HasLessRoom);
}

// Keeps the larger ones. The one that is not kept stays with the caller.
void CFTMsgFifo::TakeSpareIn(std::vector<FTMsg>* spare) {
  std::vector<FTMsg>& least = *std::min_element(m_spares.begin(), m_spares.end(), HasLessRoom);
  if (HasLessRoom(least, *spare)) least.swap(*spare);
}
