// Faults from outside. A fault is to be ordered before the thread runs that shall meet it. These
// stand before the system's functions, so they exist on Linux alone.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace testkit {

enum class Call { kSend, kReceive, kPoll, kConnect, kAccept };

struct SendCall {
  std::size_t asked;  // bytes
  ssize_t result;     // as the caller saw it
};

// While it lives, the library's socket calls behave as told and sends are recorded; the sockets of
// this kit use other calls. One at a time.
class SocketFaults {
 public:
  SocketFaults();
  ~SocketFaults();
  SocketFaults(const SocketFaults&) = delete;
  SocketFaults& operator=(const SocketFaults&) = delete;

  // Each call (send or receive) moves at most this many bytes.
  void AtMost(Call call, std::size_t bytes);
  // The next calls do nothing but fail with this errno value.
  void Fail(Call call, int error, int calls = 1);
  // How many of the failures that were ordered have not happened yet.
  std::size_t Pending() const;
  std::vector<SendCall> Sends() const;
};

// While it lives the process can start only so many more threads. One at a time.
class ThreadLimit {
 public:
  explicit ThreadLimit(int more);
  ~ThreadLimit();
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

  int Refused() const;  // attempts that failed because of the limit
};

// While it lives the process can open only so many more descriptors. One at a time.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(int more);
  ~DescriptorLimit();
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  std::uint64_t m_before;
};

// While it lives the clocks can be moved; waits are not touched. One at a time.
class ClockShift {
 public:
  ClockShift() = default;
  ~ClockShift();
  ClockShift(const ClockShift&) = delete;
  ClockShift& operator=(const ClockShift&) = delete;

  void SetWallClock(std::int64_t seconds);  // forward; negative: back
  void Sleep(std::int64_t seconds);         // as a machine does that is switched to sleep
};

}  // namespace testkit
