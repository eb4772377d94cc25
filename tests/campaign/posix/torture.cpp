#include "tests/campaign/torture.h"

#include <iostream>

#include "tests/campaign/stage.h"
#include "tests/support/process.h"

namespace campaign {

namespace {

using namespace std::chrono_literals;
using testkit::Call;

constexpr int kForEver = 100000;
constexpr int kMostPolls = 40;    // their number differs from run to run
constexpr int kAllocations = 40;  // more than one call of the application makes

struct Kind {
  const char* name;
  std::optional<Call> call;  // nothing: the allocations of the application's calls
  int error;
};
constexpr Kind kKinds[] = {
    {"thread", Call::kThread, EAGAIN},     {"socket", Call::kSocket, EMFILE},
    {"signal", Call::kDescriptor, EMFILE}, {"connect", Call::kConnect, ENETUNREACH},
    {"send", Call::kSend, ECONNRESET},     {"receive", Call::kReceive, ECONNRESET},
    {"interrupted", Call::kPoll, EINTR},   {"nothing to receive", Call::kReceive, EAGAIN},
    {"allocation", std::nullopt, ENOMEM}};

// Link, request, answer, loss, link again, request, answer, end; a fault may be the reason that
// what is waited for does not come.
void Play(Stage* stage, const std::function<void()>& before_call) {
  const auto await = [&](auto condition) { stage->Await(condition, 60ms, 300); };
  before_call();
  stage->host.Link();
  for (int i = 0; i < 2; ++i) {
    await([&] { return stage->oracle.IsUp(); });
    before_call();
    stage->host.Ask(20);
    await([&] { return stage->host.IsAnswered(); });
    if (i == 0) stage->servers.EndLink(End::kHalfClose);
    if (i == 0) await([&] { return !stage->oracle.IsUp(); });
  }
  before_call();
  stage->host.UnLink();
}

// Returns how many calls there were.
int PlayWith(const Kind& kind, int nth, int count) {
  const testkit::HeldResources before;
  int calls = kAllocations;
  {
    Stage stage({Entry::kServer, Entry::kServer});  // the second link needs not the first's end
    stage.oracle.SpoilNewLinks(true);
    auto& faults = *stage.machine.calls;
    if (kind.call && nth > 0) {
      faults.Fail(*kind.call, 0, nth - 1);
      faults.Fail(*kind.call, kind.error, count);
    }
    Play(&stage, [&] {
      if (!kind.call) stage.host.FailAllocations(nth, count);
    });
    if (kind.call) calls = static_cast<int>(faults.Calls(*kind.call));
    stage.Recover();
  }
  if (!before.AreRestored(5s)) throw Fault("left behind: " + before.Difference());
  return calls;
}

}  // namespace

std::uint64_t Torture() {
  std::uint64_t played = 0;
  for (const Kind& kind : kKinds) {
    const int calls = std::min(PlayWith(kind, 0, 0), kMostPolls);
    std::cout << kind.name << ": " << calls << " calls" << std::endl;
    for (int nth = 1; nth <= calls; ++nth) {
      for (const int count : {1, kForEver}) {
        try {
          PlayWith(kind, nth, count);
        } catch (const Fault& fault) {
          throw Fault("call " + std::to_string(nth) + ", " + std::to_string(count) +
                      " times: " + fault.what());
        }
        ++played;
      }
    }
  }
  return played;
}

}  // namespace campaign
