#include "tests/support/dead_ports.h"

namespace testkit {

ClosedPort::ClosedPort() : m_socket(OpenBoundSocket()), m_port(LocalPort(m_socket)) {}

}  // namespace testkit
