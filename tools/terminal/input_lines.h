#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/lock.h"
#include "00shcode/mytoolkit/thread.h"
#include "tools/host/line_source.h"

// Reads the standard input on a thread of its own, so that nobody else has to wait for it. Reads no
// further while many lines wait to be dropped. The calls may be made from any thread.
class InputLines final : public CMyThread, public LineSource {
 public:
  // Begins to read. Throws std::runtime_error when the system makes no thread.
  InputLines();
  // Blocks until the input has ended: a thread in a read cannot be called back.
  ~InputLines() override;

  bool HasEnded() const override;
  bool IsEmpty() const override;
  std::string GetFirst() const override;
  void DropFirst() override;

 protected:
  std::int32_t RunOnce() override;

 private:
  mutable CFTLock m_lock;
  bool m_ended FT_GUARDED_BY(m_lock) = false;
  std::deque<std::string> m_lines FT_GUARDED_BY(m_lock);
  std::size_t m_bytes FT_GUARDED_BY(m_lock) = 0;  // of the lines
  CFTEvent m_dropped;                             // a line
};
