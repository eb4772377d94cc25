#pragma once

#include <cstdint>

#include "sockif/base_sock_if.h"

namespace growth {

// What both ends have in common: the packages of the wire format, heartbeats, and everything on
// the protocol object's own thread, as a client has it.
class Protocol : public CFTBaseSockIf {
 public:
  Protocol();

 protected:
  // Both block. Derived classes stop before they are destroyed.
  void Start();
  void Stop();

  std::int32_t VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo* link) override;
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override;
};

}  // namespace growth
