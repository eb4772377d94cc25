#pragma once

#include "tests/campaign/host.h"
#include "tests/campaign/machine.h"
#include "tests/campaign/servers.h"

namespace campaign {

// Plays one schedule, then ends all faults and sees that the client recovers and can be ended.
// Throws std::runtime_error with what was wrong.
class Player {
 public:
  explicit Player(const Schedule& schedule);

  void Play();
  const Oracle& Seen() const { return m_oracle; }

 private:
  void PlayStep(const Step& step);
  void Recover();
  void AskUntilAnswered();
  void LoseLink();
  void WaitForEmptyCounters();
  bool AwaitUp(std::chrono::milliseconds limit);
  void LetPass(std::uint32_t milliseconds);

  const Schedule& m_schedule;
  Oracle m_oracle;
  Machine m_machine;
  Servers m_servers;
  Host m_host;
  bool m_crippled = false;  // threads were missing, which the client does not try to start again
};

}  // namespace campaign
