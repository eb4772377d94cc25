#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace versus {

enum class BodyKind { kText, kRandom };

// The bodies of one size that travel in turn, the same in every process.
class BodySet {
 public:
  BodySet(BodyKind kind, std::uint32_t size);

  std::uint32_t GetCount() const { return static_cast<std::uint32_t>(m_bodies.size()); }
  // Message number n of a run carries this body.
  const std::string& Of(std::uint64_t n) const {
    return m_bodies[static_cast<std::size_t>(n % m_bodies.size())];
  }

 private:
  std::vector<std::string> m_bodies;
};

}  // namespace versus
