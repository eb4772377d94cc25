#include "tests/campaign/stage.h"

#include "client/comm_thread.h"
#include "tests/support/test_protocol.h"

namespace campaign {

namespace {

using namespace std::chrono_literals;

constexpr auto kRecovery = 30s;

}  // namespace

Stage::Stage(const std::vector<Entry>& entries)
    : servers(entries, &oracle), host(servers, &oracle) {}

bool Stage::AwaitUp() {
  return Await([&] { return oracle.IsUp(); }, 100ms, Machine::kTicksWhileIdle);
}

void Stage::LetPass(std::uint32_t ticks) {
  oracle.TicksPass(ticks);
  machine.clock.Advance(ticks);
  host.WakeClient();
}

void Stage::EndFaults() {
  machine.EndFaults();
  servers.Turn();  // links that came about before are not well
  oracle.SpoilNewLinks(false);
}

void Stage::Recover() {
  EndFaults();
  host.FailAllocations(0, 0);
  servers.Heal();
  if (crippled) host.UnLink();
  if (!host.IsRunning()) host.Link();
  if (!host.HasWindow()) host.GiveWindow();
  AskUntilAnswered();
  LoseLink();
  AskUntilAnswered();
  // Links that ended keep what they had until they are deleted.
  const FTEngineState& state = testkit::StateOf(*g_pClientCommThread);
  const auto are_empty = [&] {
    if (state.queued_send_bytes == 0 && state.recv_backlog.GetBytes() == 0) return true;
    servers.SendHeartbeats();
    return false;
  };
  Require(Await(are_empty, kRecovery, Machine::kTicksWhileIdle), "the counters stay above zero");
  host.UnLink();
  Require(CMyThread::GetThreadCount() == 0, "threads are left");
}

// A link that was up may still be about to end, and take the request with it.
void Stage::AskUntilAnswered() {
  const auto end = std::chrono::steady_clock::now() + kRecovery;
  const int most_attempts = oracle.Attempts() + static_cast<int>(servers.Usable()) + 4;
  do {
    Require(std::chrono::steady_clock::now() < end, "the client does not recover");
    Require(oracle.Attempts() <= most_attempts, "too many attempts");
    if (!AwaitUp()) continue;
    const bool known = oracle.KnowsItIsUp();
    const int attempts = oracle.Attempts();
    host.Ask(10);
    Await([&] { return !oracle.IsUp() || host.IsAnswered(); }, known ? 10000ms : 50ms, 0);
    if (host.IsAnswered()) return;
    Require(!known || !oracle.IsUp() || oracle.Attempts() > attempts,
            "no answer on a link that is up");
    LetPass(Machine::kTicksWhileIdle);
  } while (true);
}

// A link that is well loses nothing when it ends in order.
void Stage::LoseLink() {
  const int attempts = oracle.Attempts();
  for (std::size_t i = 0; i < 20; ++i) servers.SendPackage(i * 25);
  servers.EndLink(End::kHalfClose);
  Require(Await([&] { return oracle.Attempts() > attempts; }, kRecovery, 0),
          "the end of a link is not told");
}

}  // namespace campaign
