#include "tests/support/socket_faults.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <map>
#include <mutex>

#include "tests/support/native_sockets.h"

namespace testkit {

namespace {

// What is ordered for one of the functions.
struct Plan {
  std::size_t at_most = std::numeric_limits<std::size_t>::max();
  std::deque<int> failures;  // errno values
};

struct Script {
  std::map<Hooked, Plan> plans;
  std::vector<SocketCall> sends;  // what was seen
};

std::atomic<bool> g_active{false};
std::mutex g_lock;  // guards the script

// Never destroyed: threads may be calling while the process ends.
Script& TheScript() {
  static auto* const script = new Script;
  return *script;
}

std::size_t Allowed(Hooked call, std::size_t asked) {
  const std::lock_guard<std::mutex> guard(g_lock);
  return std::min(asked, TheScript().plans[call].at_most);
}

}  // namespace

bool Fails(Hooked call) {
  if (!g_active) return false;
  const std::lock_guard<std::mutex> guard(g_lock);
  std::deque<int>& failures = TheScript().plans[call].failures;
  if (failures.empty()) return false;
  native::SetLastError(failures.front());
  failures.pop_front();
  return true;
}

std::ptrdiff_t Move(Hooked call, std::size_t asked,
                    const std::function<std::ptrdiff_t(std::size_t count)>& move) {
  if (!g_active) return move(asked);
  const std::ptrdiff_t result = Fails(call) ? -1 : move(Allowed(call, asked));
  const int error = result < 0 ? native::LastError() : 0;
  if (call == Hooked::kSend) {
    const std::lock_guard<std::mutex> guard(g_lock);
    TheScript().sends.push_back({asked, result, error});
  }
  if (result < 0) native::SetLastError(error);
  return result;
}

void OrderFailures(Hooked call, int error, int count) {
  LinkHooks();
  const std::lock_guard<std::mutex> guard(g_lock);
  std::deque<int>& failures = TheScript().plans[call].failures;
  failures.insert(failures.end(), static_cast<std::size_t>(count), error);
  g_active = true;
}

SocketFaults::SocketFaults() {
  LinkHooks();
  const std::lock_guard<std::mutex> guard(g_lock);
  TheScript() = Script();
  g_active = true;
}

SocketFaults::~SocketFaults() {
  g_active = false;
}

void SocketFaults::Limit(Hooked call, std::size_t bytes) {
  const std::lock_guard<std::mutex> guard(g_lock);
  TheScript().plans[call].at_most = bytes;
}

int SocketFaults::PendingFailures() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::size_t pending = 0;
  for (const auto& [call, plan] : TheScript().plans) pending += plan.failures.size();
  return static_cast<int>(pending);
}

std::vector<SocketCall> SocketFaults::Sends() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  return TheScript().sends;
}

}  // namespace testkit
