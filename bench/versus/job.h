#pragma once

#include <cstdint>
#include <string>

#include "bench/versus/body_set.h"

namespace versus {

enum class JobKind { kPush, kPipeline, kRoundTrip };

// What one run does; contender and server agree on it by the text of Command.
struct Job {
  JobKind kind = JobKind::kPush;
  BodyKind bodies = BodyKind::kText;
  std::uint32_t size = 16;
  std::uint64_t count = 0;
  // Every package in kDamageStep is damaged on its way in a push.
  bool damaged = false;

  static constexpr std::uint64_t kDamageStep = 7;

  bool IsDamaged(std::uint64_t n) const { return damaged && n % kDamageStep == kDamageStep - 1; }

  // Requests under way at a time: as many as the kind says, and 64 MiB at most.
  std::uint32_t GetOutstanding() const;

  std::string Command() const;
  static Job Parse(const std::string& command);  // throws std::runtime_error
};

}  // namespace versus
