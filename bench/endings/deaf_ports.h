#pragma once

#include <cstdint>

#include "bench/versus/socket.h"

namespace endings {

// A port where connects are neither accepted nor refused: its backlog is full.
class SilentPort {
 public:
  SilentPort();

  std::uint16_t Get() const { return m_listener.GetPort(); }

 private:
  const versus::Socket m_listener;
  const versus::Socket m_waiting;
};

// A port where connects are refused, and which nobody else is given.
class RefusingPort {
 public:
  std::uint16_t Get() const { return m_socket.GetPort(); }

 private:
  const versus::Socket m_socket = versus::Socket::Bind();
};

}  // namespace endings
