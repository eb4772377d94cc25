#include "tests/support/socket_faults.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <mutex>

namespace testkit {

namespace {

// What is planned for one of the functions, and what was seen of it.
struct Plan {
  std::size_t at_most = 0;
  std::deque<int> failures;  // errno values
  std::vector<SocketCall> calls;
};

struct Plans {
  Plan send;
  Plan receive;
  Plan poll;
};

std::atomic<bool> g_active{false};
std::mutex g_lock;  // guards the plans

// Never destroyed: threads may be calling while the process ends.
Plans& AllPlans() {
  static Plans* const plans = new Plans;
  return *plans;
}

bool TakeFailure(Plan& plan) {
  const std::lock_guard<std::mutex> guard(g_lock);
  if (plan.failures.empty()) return false;
  errno = plan.failures.front();
  plan.failures.pop_front();
  return true;
}

std::size_t Allowed(const Plan& plan, std::size_t asked) {
  const std::lock_guard<std::mutex> guard(g_lock);
  return plan.at_most == 0 ? asked : std::min(asked, plan.at_most);
}

void Record(Plan& plan, int socket, std::size_t asked, ssize_t result) {
  const int error = result < 0 ? errno : 0;
  {
    const std::lock_guard<std::mutex> guard(g_lock);
    plan.calls.push_back({socket, asked, result, error});
  }
  if (result < 0) errno = error;
}

// move(count) is the system's own function.
template <typename Move>
ssize_t MoveAsPlanned(Plan& plan, int socket, std::size_t asked, Move move) {
  const ssize_t result = TakeFailure(plan) ? -1 : move(Allowed(plan, asked));
  Record(plan, socket, asked, result);
  return result;
}

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void Order(Plan& plan, int error, int calls) {
  const std::lock_guard<std::mutex> guard(g_lock);
  plan.failures.insert(plan.failures.end(), static_cast<std::size_t>(calls), error);
}

}  // namespace

SocketFaults::SocketFaults() {
  const std::lock_guard<std::mutex> guard(g_lock);
  AllPlans() = Plans();
  g_active = true;
}

SocketFaults::~SocketFaults() {
  g_active = false;
}

void SocketFaults::SendAtMost(std::size_t bytes) {
  const std::lock_guard<std::mutex> guard(g_lock);
  AllPlans().send.at_most = bytes;
}

void SocketFaults::ReceiveAtMost(std::size_t bytes) {
  const std::lock_guard<std::mutex> guard(g_lock);
  AllPlans().receive.at_most = bytes;
}

void SocketFaults::FailSends(int error, int calls) {
  Order(AllPlans().send, error, calls);
}

void SocketFaults::FailReceives(int error, int calls) {
  Order(AllPlans().receive, error, calls);
}

void SocketFaults::FailPolls(int error, int calls) {
  Order(AllPlans().poll, error, calls);
}

int SocketFaults::PendingFailures() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  const Plans& plans = AllPlans();
  return static_cast<int>(plans.send.failures.size() + plans.receive.failures.size() +
                          plans.poll.failures.size());
}

std::vector<SocketCall> SocketFaults::Sends() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  return AllPlans().send.calls;
}

std::vector<SocketCall> SocketFaults::Receives() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  return AllPlans().receive.calls;
}

}  // namespace testkit

// These stand before the C library's functions of their names, and before a sanitizer's, in every
// program that holds this object.
extern "C" ssize_t send(int socket, const void* data, size_t size, int flags) {
  using namespace testkit;
  static const auto next = Next<decltype(&send)>("send");
  if (!g_active) return next(socket, data, size, flags);
  return MoveAsPlanned(AllPlans().send, socket, size,
                       [&](size_t count) { return next(socket, data, count, flags); });
}

extern "C" ssize_t recv(int socket, void* buffer, size_t size, int flags) {
  using namespace testkit;
  static const auto next = Next<decltype(&recv)>("recv");
  if (!g_active) return next(socket, buffer, size, flags);
  return MoveAsPlanned(AllPlans().receive, socket, size,
                       [&](size_t count) { return next(socket, buffer, count, flags); });
}

extern "C" int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  using namespace testkit;
  static const auto next = Next<decltype(&poll)>("poll");
  if (g_active && TakeFailure(AllPlans().poll)) return -1;
  return next(entries, count, timeout_ms);
}
