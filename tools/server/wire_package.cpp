#include "tools/server/wire_package.h"

#include <cstdint>

#include "client/package.h"

std::string MakeWirePackage(const std::string& body, Checksum checksum) {
  unsigned char head[ft::kPkgHeadLen];
  ft::EncodeHead(head, body.data(), static_cast<std::int32_t>(body.size()));
  if (checksum == Checksum::kWrong) head[ft::kPkgHeadLen - 1] ^= 1;
  return std::string(reinterpret_cast<const char*>(head), sizeof head) + body;
}
