#include "tools/server/listen_fault.h"

#include <cstdint>

#include "00shcode/ftmtsockimpl/sock.h"
#include "tools/server/bind_error.h"

namespace {

std::string ShowBindError(BindError error) {
  switch (error) {
    case BindError::kInUse:
      return "the port is in use";
    case BindError::kNotLocal:
      return "this machine does not have the address";
    case BindError::kNotPermitted:
      return "the port is not permitted to this user";
    default:
      return "the system refuses the address";
  }
}

std::string FindCause(const Endpoint& endpoint) {
  FTSockAddr local;
  FTSockInitAddr(&local, static_cast<std::uint16_t>(endpoint.port), endpoint.host.c_str(),
                 platform::kFamilyInet);
  // The platform refuses this one without asking the system.
  if (local.address == platform::kNoAddress) return ShowBindError(BindError::kNotLocal);
  const FTSocket socket = platform::OpenTcpSocket();
  if (socket == kNoSocket) return "the system has no socket left";
  // The error first: closing is a call on a socket too.
  const std::string fault = platform::ListenOn(socket, local) ? "nothing is in the way by now"
                                                              : ShowBindError(GetLastBindError());
  FTSockClose(socket);
  return fault;
}

}  // namespace

std::string ShowListenFault(const Endpoint& endpoint) {
  return "cannot listen on " + ShowEndpoint(endpoint) + ": " + FindCause(endpoint);
}
