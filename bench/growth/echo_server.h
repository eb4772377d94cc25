#pragma once

#include <cstdint>

#include "bench/growth/protocol.h"

namespace growth {

// Sends every package back on its link as it came.
class EchoServer final : public Protocol {
 public:
  ~EchoServer() override { Stop(); }

  // Starts and listens on the loopback interface. Returns the port; throws std::runtime_error.
  std::uint16_t Open();

 protected:
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override;
};

}  // namespace growth
