// What callers ask of a link, and what they are told.
#pragma once

#include <cstdint>

enum class FTSendMode : std::int32_t {
  kWithinLimits = 0,
  kForced = 1  // whatever is queued already
};

enum class FTOnRefusal : std::int32_t {
  kKeep = 0,  // a refused package stays the caller's
  kRelease = 1
};

enum class FTCloseMode : std::int32_t {
  kNow = 0,
  kAfterSending = 1  // once everything queued has been written
};

// Results of sending.
constexpr std::int32_t kSendQueued = 0;
constexpr std::int32_t kSendTooMuch = 1;  // refused for now: too much is queued
constexpr std::int32_t kSendNoLink = -1;  // no package, an empty one, or the link is not up
constexpr std::int32_t kSendNotRunning = -10;
