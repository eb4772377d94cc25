#include "bench/versus/inbox.h"

#include <chrono>

#include "bench/versus/socket.h"

namespace versus {

Inbox::~Inbox() {
  for (const Body& body : m_waiting) delete[] body.data;
  for (const Body& body : m_taken) delete[] body.data;
}

void Inbox::Put(const Body& body) {
  {
    std::unique_lock<std::mutex> lock(m_mutex);
    WaitForRoom(&lock);
    m_waiting.push_back(body);
    m_bytes += body.length;
  }
  m_filled.notify_one();
}

void Inbox::PutAll(std::vector<Body>* bodies) {
  if (bodies->empty()) return;
  std::size_t bytes = 0;
  for (const Body& body : *bodies) bytes += body.length;
  {
    std::unique_lock<std::mutex> lock(m_mutex);
    WaitForRoom(&lock);
    m_waiting.insert(m_waiting.end(), bodies->begin(), bodies->end());
    m_bytes += bytes;
  }
  m_filled.notify_one();
  bodies->clear();
}

void Inbox::WaitForRoom(std::unique_lock<std::mutex>* lock) {
  m_emptied.wait(*lock, [this] { return m_bytes < kMaxBytes || m_closed; });
}

bool Inbox::Take(Body* body) {
  if (m_taken.empty() && !Refill()) return false;
  *body = m_taken.front();
  m_taken.pop_front();
  return true;
}

bool Inbox::Refill() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_filled.wait_for(lock, std::chrono::milliseconds(kPatienceMs),
                    [this] { return !m_waiting.empty() || m_closed; });
  if (m_waiting.empty()) return false;
  const bool was_full = m_bytes >= kMaxBytes;
  if (m_taking == Taking::kAllAtOnce) {
    m_taken.swap(m_waiting);
    m_bytes = 0;
  } else {
    m_taken.push_back(m_waiting.front());
    m_waiting.pop_front();
    m_bytes -= m_taken.front().length;
  }
  lock.unlock();
  if (was_full) m_emptied.notify_one();
  return true;
}

void Inbox::Close() {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_closed = true;
  }
  m_filled.notify_all();
  m_emptied.notify_all();
}

}  // namespace versus
