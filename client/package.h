// The package on the wire: a 12-byte header and a body. Functions without state, any thread.
#pragma once

#include <cstdint>

#include "00shcode/mytoolkit/buffer.h"

// The header's three words, each holding its four bytes as they stand on the wire.
struct PkgHead {
  std::uint32_t Mark;
  std::uint32_t BodyLen;
  std::uint32_t CheckSum;
};

namespace ft {

constexpr std::int32_t kPkgHeadLen = 12;
constexpr std::int32_t kMaxBodyLen = INT32_MAX - kPkgHeadLen;

// The header of the package with this body: 0, or -1 with nothing written when the body is null or
// the length is negative or above kMaxBodyLen.
std::int32_t EncodeHead(unsigned char head[kPkgHeadLen], const void* body, std::int32_t body_len);

// Appends one package to the buffer. 0, or -1 with nothing appended when a pointer is null or the
// length is negative or above kMaxBodyLen.
std::int32_t EncodePkg(CFTBuffer* buffer, const void* body, std::int32_t body_len);

// Verifies the package at the front of the buffer, whose body begins behind the header. 0, or -1
// when a pointer is null, the buffer holds less than the header announces or the checksum is wrong.
std::int32_t VerifyPkg(const CFTBuffer* buffer, PkgHead* head, std::int32_t* body_len);

// The same, and copies the body to a new array that the caller releases with FreeBody; -1 leaves
// *body untouched.
std::int32_t DecodePkg(const CFTBuffer* buffer, PkgHead* head, char** body, std::int32_t* body_len);

// The length of the package that begins with these bytes: 0 when fewer than 12 are there,
// negative when the announced length cannot be one.
std::int32_t GetPkgLen(const void* data, std::int32_t count);

// A new buffer with one heartbeat package.
FTBufferPtr MakeHeartbeatPkg();

bool IsHeartbeatBody(const char* body, std::int32_t body_len);

}  // namespace ft
