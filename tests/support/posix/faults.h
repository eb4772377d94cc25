// Faults from outside, for Linux alone. A fault is to be ordered before the thread runs that shall
// meet it. Of each class one object at a time.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>

#include "tests/support/socket.h"

namespace testkit {

// kDescriptor: one for a signal between threads.
enum class Call { kSend, kReceive, kPoll, kConnect, kAccept, kSocket, kDescriptor, kThread };
constexpr std::size_t kCalls = static_cast<std::size_t>(Call::kThread) + 1;

// While it lives, the library's socket calls behave as told.
class SocketFaults {
 public:
  SocketFaults() { Activate(this); }
  ~SocketFaults() { Activate(nullptr); }

  // Each call moves at most this many bytes; of poll: waits at most so many milliseconds.
  void AtMost(Call call, std::size_t bytes) {
    const Guard guard(s_lock);
    PlanOf(call).at_most = bytes;
  }
  // The next calls do nothing but fail with this errno value; 0: they go well.
  void Fail(Call call, int error, int calls = 1) {
    const Guard guard(s_lock);
    std::deque<int>& failures = PlanOf(call).failures;
    failures.insert(failures.end(), static_cast<std::size_t>(calls), error);
  }
  std::size_t Calls(Call call) {  // those that failed too
    const Guard guard(s_lock);
    return PlanOf(call).calls;
  }
  std::size_t Pending() const {
    const Guard guard(s_lock);
    std::size_t pending = 0;
    for (const Plan& plan : m_plans) pending += plan.failures.size();
    return pending;
  }

  // How much a call of this thread may move or wait; nothing, and errno is set, when it fails.
  static std::optional<std::size_t> Meet(Call call) {
    const Guard guard(s_lock);
    if (s_active == nullptr || FaultFree::s_depth > 0) return SIZE_MAX;
    auto& [failures, at_most, calls] = s_active->PlanOf(call);
    ++calls;
    if (failures.empty()) return at_most;
    const int error = failures.front();
    failures.pop_front();
    if (error == 0) return at_most;
    errno = error;
    return std::nullopt;
  }

 private:
  using Guard = std::lock_guard<std::mutex>;

  struct Plan {
    std::deque<int> failures;
    std::size_t at_most = SIZE_MAX;
    std::size_t calls = 0;
  };

  Plan& PlanOf(Call call) { return m_plans[static_cast<std::size_t>(call)]; }

  static void Activate(SocketFaults* faults) {
    const Guard guard(s_lock);
    s_active = faults;
  }

  static inline std::mutex s_lock;  // guards everything
  static inline SocketFaults* s_active = nullptr;

  std::array<Plan, kCalls> m_plans;  // by call: to look one up takes no memory
};

// While it lives the process can start only so many more threads.
class ThreadLimit {
 public:
  explicit ThreadLimit(int more) {
    s_refused = 0;
    s_left = more;
  }
  ~ThreadLimit() { s_left = -1; }

  int Refused() const { return s_refused; }  // attempts that failed because of the limit

  static inline std::atomic<int> s_left{-1}, s_refused{0};
};

// While it lives the process can open no more descriptors.
class DescriptorLimit {
 public:
  DescriptorLimit() {
    const Descriptor lowest_free(dup(STDOUT_FILENO));
    getrlimit(RLIMIT_NOFILE, &m_before);
    const rlimit limit{static_cast<rlim_t>(lowest_free.Get()), m_before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_before); }

 private:
  rlimit m_before{};
};

// While it lives the clocks can be moved; waits are not touched.
class ClockShift {
 public:
  ~ClockShift() { s_slept = s_wall = 0; }

  void SetWallClock(time_t seconds) { s_wall += seconds; }
  void Sleep(time_t seconds) {
    s_wall += seconds;
    s_slept += seconds;
  }

  static inline std::atomic<time_t> s_wall{0}, s_slept{0};
};

}  // namespace testkit
