#pragma once

#include <array>
#include <cstdint>

struct Flow {
  std::int64_t packages = 0;
  std::int64_t bytes = 0;  // of their bodies
};

// One direction of a link: all that went that way, and what each of the last seconds had. Seconds
// are numbered by the caller and do not go back.
class FlowHistory {
 public:
  static constexpr int kSeconds = 60;  // before the one that is counted now

  void Count(std::int64_t second, std::int64_t bytes);

  const Flow& GetTotal() const { return m_total; }
  Flow GetSecond(std::int64_t second) const;

 private:
  struct Slot {
    std::int64_t second = -1;
    Flow flow;
  };

  static std::size_t IndexOf(std::int64_t second) {
    return static_cast<std::size_t>(second) % (kSeconds + 1);
  }

  Flow m_total;
  std::array<Slot, kSeconds + 1> m_slots;
};
