#pragma once

#include <deque>
#include <string>

#include "00shcode/mytoolkit/lock.h"
#include "00shcode/mytoolkit/thread.h"

// Reads the standard input on a thread of its own, so that nobody else has to wait for it.
class InputLines final : public CMyThread {
 public:
  InputLines();
  // Blocks until the input has ended: a thread in a read cannot be called back.
  ~InputLines() override;

  // The following may be called from any thread; none blocks.

  // True when no line will follow those that are waiting.
  bool HasEnded() const;

  bool IsEmpty() const;

  // The oldest line, without its end; not for an empty queue.
  std::string GetFirst() const;
  void DropFirst();

 protected:
  std::int32_t RunOnce() override;

 private:
  mutable CFTLock m_lock;
  bool m_ended FT_GUARDED_BY(m_lock) = false;
  std::deque<std::string> m_lines FT_GUARDED_BY(m_lock);
};
