#pragma once

#include <deque>
#include <string>

#include "tools/host/line_source.h"
#include "tools/terminal/screen.h"

// Makes lines out of keys.
class LineEditor final : public LineSource {
 public:
  // Keys after the end of the input, and those that are not for a line, change nothing.
  void Take(const Key& key);

  // The line that is being typed.
  const std::string& GetText() const { return m_text; }

  bool HasEnded() const override { return m_ended; }
  bool IsEmpty() const override { return m_lines.empty(); }
  std::string GetFirst() const override { return m_lines.front(); }
  void DropFirst() override { m_lines.pop_front(); }

 private:
  void FinishLine();

  std::string m_text;
  std::deque<std::string> m_lines;
  bool m_ended = false;
};
