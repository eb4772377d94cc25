#pragma once

#include <mutex>
#include <string>

#include "bench/versus/wire.h"

namespace versus {

// Packages on their way from the application's thread to a network thread, ready to be written.
class Outbox {
 public:
  explicit Outbox(CheckSum check_sum) : m_check_sum(check_sum) {}

  // The application. True: the network thread has to be told, since it is not busy writing.
  bool Add(const char* body, std::uint32_t length);

  // The network thread, when the last chunk is written: swaps what is waiting into the chunk. False
  // and idle from now on: nothing is.
  bool TakeAll(std::string* chunk);

 private:
  const CheckSum m_check_sum;
  std::mutex m_mutex;
  std::string m_waiting;
  bool m_writing = false;
};

}  // namespace versus
