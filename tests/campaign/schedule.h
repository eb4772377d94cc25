#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace campaign {

enum class Act : std::uint8_t {
  // Servers; about the link that was accepted last.
  kPackages,
  kFlood,
  kLarge,
  kSingleBytes,
  kHeartbeat,
  kEmpty,
  kBalanceBytes,
  kBadCheckSum,
  kRandomBytes,
  kHostileLength,
  kHalfClose,
  kClose,
  kReset,
  // Servers; from now on.
  kGreeting,
  kAnswering,
  // The host.
  kAwaitUp,
  kTake,
  kAsk,
  kAskTogether,
  kChangeWindow,
  kNoWindow,
  kDestroyWindow,
  kRelink,
  kBalance,
  // The machine.
  kTicks,
  kWallClock,
  kNoDescriptors,
  kFewThreads,
  kNoMemory,
  kShortCalls,
  kInterruptions,
  kAgain,
  kBrokenCalls,
  kDeafStderr,
  kFaultsEnd,
};
constexpr std::size_t kActs = static_cast<std::size_t>(Act::kFaultsEnd) + 1;

const char* NameOf(Act act);

struct Step {
  Act act;
  std::uint32_t a, b;  // what they say depends on the act
};

// One entry of the server list that the client is given.
enum class Entry : std::uint8_t { kServer, kRefusing, kMute, kNoAddress };

// The same seed and number give the same servers and steps on every machine.
class Schedule {
 public:
  Schedule(std::uint64_t seed, std::uint64_t number);

  const std::vector<Entry>& Entries() const { return m_entries; }  // one kServer at least
  const std::vector<Step>& Steps() const { return m_steps; }
  std::string Words() const;

 private:
  std::vector<Entry> m_entries;
  std::vector<Step> m_steps;
};

}  // namespace campaign
