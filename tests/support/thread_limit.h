#pragma once

namespace testkit {

// While it lives the process can start only so many more threads; every later attempt fails as it
// does when the system has no more. One at a time.
class ThreadLimit {
 public:
  explicit ThreadLimit(int more);
  ~ThreadLimit();
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

  // Attempts that failed because of the limit.
  int RefusedCount() const;
};

}  // namespace testkit
