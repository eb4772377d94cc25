#pragma once

#include "machine.h"  // of this system
#include "tests/campaign/host.h"
#include "tests/campaign/servers.h"

namespace campaign {

// Everything that a schedule plays with, on one thread.
class Stage {
 public:
  using Milliseconds = std::chrono::milliseconds;

  explicit Stage(const std::vector<Entry>& entries);

  // Lets time pass until it is so or the limit is over; returns whether it was. For each
  // millisecond that brings nothing the tick clock goes on by so much.
  template <typename Condition>
  bool Await(Condition condition, Milliseconds limit, std::uint32_t ticks) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      servers.Turn();
      if (!host.Take(1) && ticks > 0) LetPass(ticks);
    }
    return true;
  }
  bool AwaitUp();
  void LetPass(std::uint32_t ticks);
  void EndFaults();  // of the machine
  // Ends all faults, sees that the client works, loses no link that is well, and can be ended.
  void Recover();

  Oracle oracle;
  Machine machine;
  Servers servers;
  Host host;
  bool crippled = false;  // threads were missing, which the client does not try to start again

 private:
  void AskUntilAnswered();
  void LoseLink();
};

}  // namespace campaign
