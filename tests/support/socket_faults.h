#pragma once

#include <cstddef>
#include <vector>

#include "tests/support/hooks.h"

namespace testkit {

struct SocketCall {
  std::size_t asked;      // bytes
  std::ptrdiff_t result;  // as the caller saw it
  int error;              // errno value when the result is -1
};

// While it lives, send, recv and poll (on Windows select) behave in this process as told, and sends
// are recorded; the sockets of this kit are left out. Faults may be set while other threads are
// calling. One at a time.
class SocketFaults {
 public:
  SocketFaults();
  ~SocketFaults();
  SocketFaults(const SocketFaults&) = delete;
  SocketFaults& operator=(const SocketFaults&) = delete;

  // Each call moves at most this many bytes.
  void SendAtMost(std::size_t bytes) { Limit(Hooked::kSend, bytes); }
  void ReceiveAtMost(std::size_t bytes) { Limit(Hooked::kReceive, bytes); }

  // The next calls do nothing but fail with this errno value (EINTR, EAGAIN, ECONNRESET ...).
  void FailSends(int error, int calls = 1) { OrderFailures(Hooked::kSend, error, calls); }
  void FailReceives(int error, int calls = 1) { OrderFailures(Hooked::kReceive, error, calls); }
  void FailPolls(int error, int calls = 1) { OrderFailures(Hooked::kPoll, error, calls); }
  // How many of the failures that were ordered have not happened yet.
  int PendingFailures() const;

  std::vector<SocketCall> Sends() const;

 private:
  static void Limit(Hooked call, std::size_t bytes);
};

}  // namespace testkit
