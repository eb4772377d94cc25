// Ports of this machine on which no link comes about.
#pragma once

#include <vector>

#include "tests/support/socket_io.h"

namespace testkit {

// Refuses every connect. Nobody else gets the port while the object lives.
class ClosedPort : public OwnPort {};

// Leaves every connect without an answer, as a host that is switched off does.
class FullBacklogPort : public OwnPort {
 public:
  FullBacklogPort();

 private:
  std::vector<Descriptor> m_callers;  // have all the places, and are never accepted
};

}  // namespace testkit
