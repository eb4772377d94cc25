#include "bench/growth/echo_server.h"

#include <stdexcept>

#include "client/package.h"

namespace growth {

std::uint16_t EchoServer::Open() {
  std::uint16_t port = 0;
  Start();
  if (Listen("127.0.0.1", 0, 0, 0, &port).empty()) throw std::runtime_error("cannot listen");
  return port;
}

void EchoServer::OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) {
  const auto* const body = reinterpret_cast<const char*>(pkg->GetData()) + ft::kPkgHeadLen;
  if (ft::IsHeartbeatBody(body, pkg->GetDataLen() - ft::kPkgHeadLen)) return;
  *keep = 1;
  SendPkg(link->link_id, pkg, &ReleaseFTBuffer, FTSendMode::kForced, FTOnRefusal::kRelease, 3);
}

}  // namespace growth
