#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace bench {

// A copy of this process that does some work and ends. To be made while this process has one
// thread.
class Child {
 public:
  // What the work throws is printed, and is the child's failure.
  explicit Child(const std::function<void()>& work);
  // Kills the child if it still runs.
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t GetId() const { return m_id; }

  // Blocks until the work is done. False: it failed.
  bool Wait();

  // Ends it as a crash would.
  void Kill();

 private:
  pid_t m_id;
};

}  // namespace bench
