#include "tools/terminal/input_lines.h"

#include <iostream>
#include <stdexcept>
#include <utility>

InputLines::InputLines() {
  SetThreadName("input");
  if (StartThread(0) != 0) throw std::runtime_error("the system makes no thread");
}

InputLines::~InputLines() {
  WaitThreadExit();
}

bool InputLines::HasEnded() const {
  const CFTScopedLock guard(&m_lock);
  return m_ended;
}

bool InputLines::IsEmpty() const {
  const CFTScopedLock guard(&m_lock);
  return m_lines.empty();
}

std::string InputLines::GetFirst() const {
  const CFTScopedLock guard(&m_lock);
  return m_lines.front();
}

void InputLines::DropFirst() {
  const CFTScopedLock guard(&m_lock);
  m_lines.pop_front();
}

std::int32_t InputLines::RunOnce() {
  std::string line;
  const bool got_line = static_cast<bool>(std::getline(std::cin, line));
  const CFTScopedLock guard(&m_lock);
  if (got_line) {
    m_lines.push_back(std::move(line));
  } else {
    m_ended = true;
    StopThread();
  }
  return 0;
}
