#include "tests/campaign/schedule.h"

namespace campaign {

namespace {

using u32 = std::uint32_t;
using testkit::Call;

// Links may lose something by it, also those that come about before it is over.
void BreakCalls(Stage& s, u32 a, u32 b) {
  static constexpr std::pair<Call, int> kBroken[] = {
      {Call::kSend, EPIPE},          {Call::kSend, ENOBUFS},       {Call::kReceive, ETIMEDOUT},
      {Call::kConnect, ENETUNREACH}, {Call::kReceive, ECONNRESET}, {Call::kSocket, ENFILE},
      {Call::kSocket, ENOBUFS},      {Call::kConnect, EAGAIN},     {Call::kDescriptor, EMFILE}};
  const auto& [call, error] = kBroken[a % std::size(kBroken)];
  s.oracle.SpoilAll();
  s.oracle.SpoilNewLinks(true);
  s.machine.calls->Fail(call, error, 1 + int(b % 3));
}

void ShiftWallClock(Stage& s, u32, u32) {
  s.oracle.WatchdogMayBite();
  s.oracle.SpoilAll();
  s.machine.wall.SetWallClock(9);
}

void Interrupt(Stage& s, u32, u32 b) {
  for (const Call call : {Call::kPoll, Call::kSend, Call::kReceive, Call::kConnect}) {
    s.machine.calls->Fail(call, EINTR, 1 + int(b % 4));
  }
}

Call SendOrReceive(u32 a) {
  return a % 2 == 0 ? Call::kSend : Call::kReceive;
}

void LimitThreads(Stage& s, u32 a, u32) {
  s.machine.threads.reset();
  s.machine.threads.emplace(int(a % 7));
  s.crippled = true;
}

}  // namespace

std::vector<Act> SystemActs() {
  return {
      {"wall-clock", 2, &ShiftWallClock},
      {"no-descriptors", 1,
       [](Stage& s, u32, u32) {
         auto& limit = s.machine.descriptors;
         if (!limit) limit.emplace();
       }},
      {"few-threads", 1, &LimitThreads},
      {"no-memory", 3,
       [](Stage& s, u32 a, u32 b) {
         s.host.FailAllocations(1 + int(a % 30), b % 2 == 0 ? 1 : 1000);
       }},
      {"short-calls", 2,
       [](Stage& s, u32 a, u32 b) { s.machine.calls->AtMost(SendOrReceive(a), 1 + b % 2000); }},
      {"interruptions", 2, &Interrupt},
      {"again", 2,
       [](Stage& s, u32 a, u32 b) {
         s.machine.calls->Fail(SendOrReceive(a), EAGAIN, 1 + int(b % 200));
       }},
      {"broken-calls", 3, &BreakCalls},
      {"deaf-stderr", 1,
       [](Stage& s, u32, u32) {
         auto& deaf = s.machine.deaf_stderr;
         if (!deaf) deaf.emplace();
       }},
  };
}

}  // namespace campaign
