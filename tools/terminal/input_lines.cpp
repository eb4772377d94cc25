#include "tools/terminal/input_lines.h"

#include <iostream>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t kMostLines = 10000;
constexpr std::size_t kMostBytes = 16000000;
constexpr std::uint32_t kWithoutLimit = 0xFFFFFFFF;

}  // namespace

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
  m_bytes -= m_lines.front().size();
  m_lines.pop_front();
  m_dropped.Set();
}

std::int32_t InputLines::RunOnce() {
  std::string line;
  const bool got_line = static_cast<bool>(std::getline(std::cin, line));
  const CFTScopedLock guard(&m_lock);
  if (!got_line) {
    m_ended = true;
    StopThread();
    return 0;
  }
  m_bytes += line.size();
  m_lines.push_back(std::move(line));
  while (m_lines.size() >= kMostLines || m_bytes >= kMostBytes) {
    m_dropped.WaitUnlocked(&m_lock, kWithoutLimit);
  }
  return 0;
}
