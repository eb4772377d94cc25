#include "bench/versus/outbox.h"

#include <utility>

namespace versus {

bool Outbox::Add(const char* body, std::uint32_t length) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  AppendPackage(&m_waiting, body, length, m_check_sum);
  return !std::exchange(m_writing, true);
}

bool Outbox::TakeAll(std::string* chunk) {
  chunk->clear();
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_waiting.swap(*chunk);
  m_writing = !chunk->empty();
  return m_writing;
}

}  // namespace versus
