#include "tests/support/posix/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <limits>
#include <map>
#include <mutex>

#include "tests/support/socket_io.h"

#define HOOK extern "C" __attribute__((weak))

using namespace testkit;

namespace {

struct Script {
  std::map<Call, std::deque<int>> failures;  // errno values
  std::map<Call, std::size_t> at_most;
  std::vector<SendCall> sends;
};

std::atomic<bool> g_active{false};
std::mutex g_lock;  // guards the script
std::atomic<int> g_threads_left{-1};
std::atomic<int> g_threads_refused{0};
std::atomic<std::int64_t> g_wall_shift{0};  // seconds
std::atomic<std::int64_t> g_slept{0};

// Never destroyed: threads may be calling while the process ends.
Script& TheScript() {
  static auto* const script = new Script;
  return *script;
}

template <typename Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool Fails(Call call) {
  if (!g_active) return false;
  const std::lock_guard<std::mutex> guard(g_lock);
  std::deque<int>& failures = TheScript().failures[call];
  if (failures.empty()) return false;
  errno = failures.front();
  failures.pop_front();
  return true;
}

// The message with as many bytes as may be moved.
struct Cut {
  Cut(Call call, const msghdr* original) : message(*original) {
    parts.assign(original->msg_iov, original->msg_iov + original->msg_iovlen);
    for (const iovec& part : parts) asked += part.iov_len;
    if (g_active) Shorten(call);
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
  }

  void Shorten(Call call) {
    const std::lock_guard<std::mutex> guard(g_lock);
    const auto limit = TheScript().at_most.find(call);
    if (limit == TheScript().at_most.end()) return;
    std::size_t left = limit->second;
    for (iovec& part : parts) {
      part.iov_len = std::min(part.iov_len, left);
      left -= part.iov_len;
    }
  }

  msghdr message;
  std::vector<iovec> parts;
  std::size_t asked = 0;
};

}  // namespace

HOOK ssize_t sendmsg(int socket, const msghdr* original, int flags) {
  static const auto next = Next(&sendmsg, "sendmsg");
  const Cut cut(Call::kSend, original);
  const ssize_t result = Fails(Call::kSend) ? -1 : next(socket, &cut.message, flags);
  if (!g_active) return result;
  const int error = errno;
  const std::lock_guard<std::mutex> guard(g_lock);
  TheScript().sends.push_back({cut.asked, result});
  errno = error;
  return result;
}

HOOK ssize_t recvmsg(int socket, msghdr* original, int flags) {
  static const auto next = Next(&recvmsg, "recvmsg");
  Cut cut(Call::kReceive, original);
  return Fails(Call::kReceive) ? -1 : next(socket, &cut.message, flags);
}

HOOK int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  static const auto next = Next(&poll, "poll");
  return Fails(Call::kPoll) ? -1 : next(entries, count, timeout_ms);
}

HOOK int connect(int socket, const sockaddr* address, socklen_t length) {
  static const auto next = Next(&connect, "connect");
  return Fails(Call::kConnect) ? -1 : next(socket, address, length);
}

HOOK int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  static const auto next = Next(&accept4, "accept4");
  return Fails(Call::kAccept) ? -1 : next(socket, address, length, flags);
}

// A limit of the system's would not bind a privileged user.
HOOK int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*main)(void*),
                        void* argument) noexcept {
  static const auto next = Next(&pthread_create, "pthread_create");
  int left = g_threads_left;
  while (left > 0 && !g_threads_left.compare_exchange_weak(left, left - 1)) {
  }
  if (left != 0) return next(thread, attributes, main, argument);
  ++g_threads_refused;
  return EAGAIN;
}

// Called while the program is still being loaded: no lock, and none of the compiler's, is taken.
HOOK int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static std::atomic<int (*)(clockid_t, timespec*)> next{nullptr};
  if (next.load() == nullptr) next = Next(&clock_gettime, "clock_gettime");
  const int result = next.load()(clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) now->tv_sec += g_wall_shift.load();
  if (result == 0 && clock == CLOCK_BOOTTIME) now->tv_sec += g_slept.load();
  return result;
}

namespace testkit {

SocketFaults::SocketFaults() {
  const std::lock_guard<std::mutex> guard(g_lock);
  TheScript() = Script();
  g_active = true;
}

SocketFaults::~SocketFaults() {
  g_active = false;
}

void SocketFaults::AtMost(Call call, std::size_t bytes) {
  const std::lock_guard<std::mutex> guard(g_lock);
  TheScript().at_most[call] = bytes;
}

void SocketFaults::Fail(Call call, int error, int calls) {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::deque<int>& failures = TheScript().failures[call];
  failures.insert(failures.end(), static_cast<std::size_t>(calls), error);
}

std::size_t SocketFaults::Pending() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::size_t pending = 0;
  for (const auto& [call, failures] : TheScript().failures) pending += failures.size();
  return pending;
}

std::vector<SendCall> SocketFaults::Sends() const {
  const std::lock_guard<std::mutex> guard(g_lock);
  return TheScript().sends;
}

ThreadLimit::ThreadLimit(int more) {
  g_threads_refused = 0;
  g_threads_left = more;
}

ThreadLimit::~ThreadLimit() {
  g_threads_left = -1;
}

int ThreadLimit::Refused() const {
  return g_threads_refused;
}

// The system gives out the lowest free number: the one behind the next `more` is out of bounds.
DescriptorLimit::DescriptorLimit(int more) {
  std::vector<Descriptor> taken;
  for (int i = 0; i <= more; ++i) {
    taken.emplace_back(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    if (taken.back().Get() < 0) ThrowSystemError("duplicating a descriptor");
  }
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  m_before = limit.rlim_cur;
  limit.rlim_cur = static_cast<rlim_t>(taken.back().Get());
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) ThrowSystemError("setrlimit");
}

DescriptorLimit::~DescriptorLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = m_before;
  setrlimit(RLIMIT_NOFILE, &limit);
}

ClockShift::~ClockShift() {
  g_wall_shift = 0;
  g_slept = 0;
}

void ClockShift::SetWallClock(std::int64_t seconds) {
  g_wall_shift += seconds;
}

void ClockShift::Sleep(std::int64_t seconds) {
  g_wall_shift += seconds;
  g_slept += seconds;
}

}  // namespace testkit
