#include "tests/campaign/machine.h"

#include <fcntl.h>

namespace campaign {

using testkit::Call;

Machine::Machine() {
  EndFaults();
}

bool Machine::Play(const Step& step) {
  const int some = 1 + static_cast<int>(step.b % 200);
  switch (step.act) {
    case Act::kWallClock:
      m_wall.SetWallClock(9);
      return true;
    case Act::kNoDescriptors:
      if (!m_descriptors) m_descriptors.emplace();
      return false;
    case Act::kFewThreads:
      m_threads.reset();
      m_threads.emplace(static_cast<int>(step.a % 7));
      return false;
    case Act::kShortCalls:
      m_calls->AtMost(step.a % 2 == 0 ? Call::kSend : Call::kReceive, 1 + step.b % 2000);
      return false;
    case Act::kInterruptions:
      for (const Call call : {Call::kPoll, Call::kSend, Call::kReceive, Call::kConnect}) {
        m_calls->Fail(call, EINTR, some % 5);
      }
      return false;
    case Act::kAgain:
      m_calls->Fail(step.a % 2 == 0 ? Call::kSend : Call::kReceive, EAGAIN, some);
      return false;
    case Act::kBrokenCalls:
      BreakCall(step);
      return true;
    case Act::kDeafStderr:
      if (!m_stderr) m_stderr.emplace();
      return false;
    default:
      EndFaults();
      return false;
  }
}

void Machine::BreakCall(const Step& step) {
  static constexpr std::pair<Call, int> kBroken[] = {
      {Call::kSend, EPIPE},          {Call::kSend, ENOBUFS},       {Call::kReceive, ETIMEDOUT},
      {Call::kConnect, ENETUNREACH}, {Call::kReceive, ECONNRESET}, {Call::kSocket, ENFILE},
      {Call::kSocket, ENOBUFS},      {Call::kConnect, EAGAIN},     {Call::kDescriptor, EMFILE}};
  const auto& [call, error] = kBroken[step.a % std::size(kBroken)];
  m_calls->Fail(call, error, 1 + static_cast<int>(step.b % 3));
}

// No wait for a socket lasts longer than a few milliseconds of the real time, in which the tick
// clock may pass by minutes.
void Machine::EndFaults() {
  m_stderr.reset();
  m_descriptors.reset();
  m_threads.reset();
  m_calls.reset();
  m_calls.emplace().AtMost(Call::kPoll, 3);
}

// The pipe's one page is begun, so that no wait finds room. What a thread was about to write at
// this moment still fits in behind.
Machine::DeafStderr::DeafStderr() : m_original(dup(STDERR_FILENO)) {
  constexpr int kPage = 4096;
  if (m_original < 0 || pipe2(m_ends, O_CLOEXEC) != 0) return;
  const std::string filling(kPage - 1000, 'x');
  if (fcntl(m_ends[1], F_SETPIPE_SZ, kPage) != kPage) return;
  if (write(m_ends[1], filling.data(), filling.size()) > 0) dup2(m_ends[1], STDERR_FILENO);
}

Machine::DeafStderr::~DeafStderr() {
  if (m_ends[0] >= 0) dup2(m_original, STDERR_FILENO);
  for (const int descriptor : {m_original, m_ends[0], m_ends[1]}) {
    if (descriptor >= 0) close(descriptor);
  }
}

}  // namespace campaign
