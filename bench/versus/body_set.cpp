#include "bench/versus/body_set.h"

#include <algorithm>
#include <random>

namespace versus {

namespace {

// Few enough to stay in the cache, and many enough for branches to be hard to predict.
constexpr std::uint32_t kMaxBodies = 61;
constexpr std::uint32_t kMaxSetBytes = 1 << 18;

std::string MakeBody(BodyKind kind, std::uint32_t size, std::mt19937* random) {
  static const std::string letters = "etaoin shrdlu cmfwyp vbgkqjxz";
  std::string body(size, '\0');
  for (char& c : body) {
    const auto number = static_cast<std::uint32_t>((*random)());
    c = kind == BodyKind::kText ? letters[number % letters.size()] : static_cast<char>(number);
  }
  // The client would drop it as a heartbeat.
  if (body.compare(0, 3, std::string("HB\0", 3)) == 0) body[0] = 'h';
  return body;
}

}  // namespace

BodySet::BodySet(BodyKind kind, std::uint32_t size) {
  std::mt19937 random(size);
  const std::uint32_t count = std::clamp(kMaxSetBytes / std::max(size, 1U), 1U, kMaxBodies);
  for (std::uint32_t i = 0; i < count; ++i) m_bodies.push_back(MakeBody(kind, size, &random));
}

}  // namespace versus
