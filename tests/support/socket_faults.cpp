#include "tests/support/socket_faults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <mutex>

#include "tests/support/socket_fault_hooks.h"

namespace testkit {

namespace {

// What is planned for one of the functions, and what was seen of it.
struct Plan {
  std::size_t at_most = 0;
  std::deque<int> failures;  // errno values
  std::vector<SocketCall> calls;
};

using Plans = std::array<Plan, 3>;

std::atomic<bool> g_active{false};
std::mutex g_lock;  // guards the plans

// Never destroyed: threads may be calling while the process ends.
Plans& AllPlans() {
  static Plans* const plans = new Plans;
  return *plans;
}

Plan& PlanOf(FaultyCall call) {
  return AllPlans()[static_cast<std::size_t>(call)];
}

void Order(FaultyCall call, int error, int calls) {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::deque<int>& failures = PlanOf(call).failures;
  failures.insert(failures.end(), static_cast<std::size_t>(calls), error);
}

void Limit(FaultyCall call, std::size_t bytes) {
  const std::lock_guard<std::mutex> guard(g_lock);
  PlanOf(call).at_most = bytes;
}

std::vector<SocketCall> CallsOf(FaultyCall call) {
  const std::lock_guard<std::mutex> guard(g_lock);
  return PlanOf(call).calls;
}

}  // namespace

bool AreFaultsActive() {
  return g_active;
}

int TakeFault(FaultyCall call) {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::deque<int>& failures = PlanOf(call).failures;
  if (failures.empty()) return 0;
  const int error = failures.front();
  failures.pop_front();
  return error;
}

std::size_t AllowedBytes(FaultyCall call, std::size_t asked) {
  const std::lock_guard<std::mutex> guard(g_lock);
  const std::size_t at_most = PlanOf(call).at_most;
  return at_most == 0 ? asked : std::min(asked, at_most);
}

void RecordCall(FaultyCall call, const SocketCall& seen) {
  const std::lock_guard<std::mutex> guard(g_lock);
  PlanOf(call).calls.push_back(seen);
}

SocketFaults::SocketFaults() {
  LinkSocketHooks();
  const std::lock_guard<std::mutex> guard(g_lock);
  AllPlans() = Plans();
  g_active = true;
}

SocketFaults::~SocketFaults() {
  g_active = false;
}

void SocketFaults::SendAtMost(std::size_t bytes) {
  Limit(FaultyCall::kSend, bytes);
}

void SocketFaults::ReceiveAtMost(std::size_t bytes) {
  Limit(FaultyCall::kReceive, bytes);
}

void SocketFaults::FailSends(int error, int calls) {
  Order(FaultyCall::kSend, error, calls);
}

void SocketFaults::FailReceives(int error, int calls) {
  Order(FaultyCall::kReceive, error, calls);
}

void SocketFaults::FailPolls(int error, int calls) {
  Order(FaultyCall::kPoll, error, calls);
}

int SocketFaults::PendingFailures() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::size_t pending = 0;
  for (const Plan& plan : AllPlans()) pending += plan.failures.size();
  return static_cast<int>(pending);
}

std::vector<SocketCall> SocketFaults::Sends() const {
  return CallsOf(FaultyCall::kSend);
}

std::vector<SocketCall> SocketFaults::Receives() const {
  return CallsOf(FaultyCall::kReceive);
}

}  // namespace testkit
