#include "tests/support/socket_traits.h"

#include "tests/support/scripted_server.h"

namespace testkit {

LinkEnd EndOfResetLinks() {
  constexpr std::chrono::seconds kLimit{5};
  ScriptedServer server;
  Peer caller = Peer::Connect(server.Port(), kLimit);
  server.Accept(kLimit).Reset();
  return caller.WaitClosed(kLimit);
}

}  // namespace testkit
