#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

#include "bench/versus/contender.h"

namespace versus {

// Hands bodies, arrays made with new, from a network thread to the application's thread.
class Inbox {
 public:
  // How many the application takes out under one lock.
  enum class Taking { kOneByOne, kAllAtOnce };

  explicit Inbox(Taking taking) : m_taking(taking) {}
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  // The network thread; both wait while more than kMaxBytes are waiting here.
  void Put(const Body& body);
  void PutAll(std::vector<Body>* bodies);

  // The application. False: nothing came within kPatienceMs, or it is closed and empty.
  bool Take(Body* body);

  // Any thread. Nobody waits any more.
  void Close();

 private:
  static constexpr std::size_t kMaxBytes = std::size_t{1} << 27;

  void WaitForRoom(std::unique_lock<std::mutex>* lock);
  bool Refill();

  const Taking m_taking;
  std::mutex m_mutex;
  std::condition_variable m_filled;
  std::condition_variable m_emptied;
  std::deque<Body> m_waiting;
  std::size_t m_bytes = 0;
  bool m_closed = false;

  std::deque<Body> m_taken;  // the application's alone
};

}  // namespace versus
