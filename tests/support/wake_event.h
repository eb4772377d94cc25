#pragma once

#include "tests/support/socket_io.h"

namespace testkit {

// A signal that a thread can wait for together with sockets. Any thread may set it.
class WakeEvent {
 public:
  WakeEvent();

  void Set() const;
  void Clear() const;
  // Has something to read while the event is set.
  const Descriptor& Readable() const { return m_descriptor; }

 private:
  Descriptor m_descriptor;
};

}  // namespace testkit
