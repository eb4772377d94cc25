#include "bench/versus/cutter.h"

#include <cstring>
#include <utility>

namespace versus {

Cutter::Cutter(CheckSum check_sum) : m_check_sum(check_sum), m_buffer(new char[kBufferBytes]) {}

Cutter::~Cutter() {
  delete[] m_long.data;
}

Cutter::Space Cutter::GetSpace() const {
  if (m_long.data != nullptr) return {m_long.data + m_long_filled, m_long.length - m_long_filled};
  return {m_buffer.get() + m_buffered, kBufferBytes - m_buffered};
}

void Cutter::Commit(std::size_t count, std::vector<Body>* bodies) {
  if (m_long.data == nullptr) {
    m_buffered += count;
    CutBuffer(bodies);
    return;
  }
  m_long_filled += count;
  if (m_long_filled == m_long.length) {
    Finish(std::exchange(m_long, Body()), m_long_check_sum, bodies);
  }
}

void Cutter::CutBuffer(std::vector<Body>* bodies) {
  std::size_t used = 0;
  while (m_buffered - used >= kHeadBytes) {
    const char* const package = m_buffer.get() + used;
    const Head head = DecodeHead(package);
    const std::size_t there = m_buffered - used - kHeadBytes;
    if (there < head.body_length && head.body_length + kHeadBytes <= kBufferBytes) break;
    const Body body{new char[head.body_length], head.body_length};
    if (there < head.body_length) {
      std::memcpy(body.data, package + kHeadBytes, there);
      m_long = body;
      m_long_check_sum = head.check_sum;
      m_long_filled = there;
      used = m_buffered;
      break;
    }
    std::memcpy(body.data, package + kHeadBytes, body.length);
    Finish(body, head.check_sum, bodies);
    used += kHeadBytes + body.length;
  }
  m_buffered -= used;
  std::memmove(m_buffer.get(), m_buffer.get() + used, m_buffered);
}

void Cutter::Finish(const Body& body, std::uint32_t check_sum, std::vector<Body>* bodies) const {
  if (m_check_sum(body.data, body.length) == check_sum) {
    bodies->push_back(body);
  } else {
    delete[] body.data;
  }
}

}  // namespace versus
