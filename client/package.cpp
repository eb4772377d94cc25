#include "client/package.h"

#include <cstddef>
#include <cstring>

#include "client/check_sum.h"

namespace {

constexpr unsigned char kMark[4] = {1, 0, 0, 0};
constexpr char kHeartbeatBody[3] = {'H', 'B', '\0'};

constexpr std::int32_t kBodyLenOffset = 4;
constexpr std::int32_t kCheckSumOffset = 8;

void StoreBigEndian(std::uint32_t value, unsigned char* bytes) {
  bytes[0] = static_cast<unsigned char>(value >> 24);
  bytes[1] = static_cast<unsigned char>(value >> 16);
  bytes[2] = static_cast<unsigned char>(value >> 8);
  bytes[3] = static_cast<unsigned char>(value);
}

std::uint32_t LoadBigEndian(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

}  // namespace

std::int32_t ft::EncodeHead(unsigned char head[kPkgHeadLen], const void* body,
                            std::int32_t body_len) {
  if (body == nullptr || body_len < 0 || body_len > ft::kMaxBodyLen) return -1;
  std::memcpy(head, kMark, sizeof kMark);
  StoreBigEndian(static_cast<std::uint32_t>(body_len), head + kBodyLenOffset);
  ft::CalcCheckSum(head + kCheckSumOffset, body, body_len);
  return 0;
}

std::int32_t ft::EncodePkg(CFTBuffer* buffer, const void* body, std::int32_t body_len) {
  unsigned char head[ft::kPkgHeadLen];
  if (buffer == nullptr || ft::EncodeHead(head, body, body_len) != 0) return -1;
  buffer->Reserve(ft::kPkgHeadLen + body_len);
  buffer->Append(head, ft::kPkgHeadLen);
  buffer->Append(body, body_len);
  return 0;
}

std::int32_t ft::VerifyPkg(const CFTBuffer* buffer, PkgHead* head, std::int32_t* body_len) {
  if (buffer == nullptr || head == nullptr || body_len == nullptr) return -1;
  const std::int32_t available = buffer->GetDataLen();
  if (available < ft::kPkgHeadLen) return -1;
  const unsigned char* const data = buffer->GetData();
  static_assert(sizeof *head == ft::kPkgHeadLen);
  std::memcpy(head, data, sizeof *head);
  const std::uint32_t announced = LoadBigEndian(data + kBodyLenOffset);
  *body_len = static_cast<std::int32_t>(announced);
  if (announced > static_cast<std::uint32_t>(available - ft::kPkgHeadLen)) return -1;

  unsigned char check_sum[4];
  ft::CalcCheckSum(check_sum, data + ft::kPkgHeadLen, *body_len);
  return std::memcmp(check_sum, data + kCheckSumOffset, sizeof check_sum) == 0 ? 0 : -1;
}

std::int32_t ft::DecodePkg(const CFTBuffer* buffer, PkgHead* head, char** body,
                           std::int32_t* body_len) {
  if (body == nullptr || ft::VerifyPkg(buffer, head, body_len) != 0) return -1;
  const auto length = static_cast<std::size_t>(*body_len);
  *body = ft::AllocBody(length);
  std::memcpy(*body, buffer->GetData() + ft::kPkgHeadLen, length);
  return 0;
}

std::int32_t ft::GetPkgLen(const void* data, std::int32_t count) {
  if (count < ft::kPkgHeadLen) return 0;
  const auto* const bytes = static_cast<const unsigned char*>(data);
  const std::uint32_t announced = LoadBigEndian(bytes + kBodyLenOffset);
  return announced > ft::kMaxBodyLen ? -1 : static_cast<std::int32_t>(announced) + ft::kPkgHeadLen;
}

FTBufferPtr ft::MakeHeartbeatPkg() {
  FTBufferPtr buffer = CFTBuffer::Make(ft::kPkgHeadLen + sizeof kHeartbeatBody);
  ft::EncodePkg(buffer.get(), kHeartbeatBody, sizeof kHeartbeatBody);
  return buffer;
}

bool ft::IsHeartbeatBody(const char* body, std::int32_t body_len) {
  constexpr auto kLength = static_cast<std::int32_t>(sizeof kHeartbeatBody);
  return body_len >= kLength && std::memcmp(body, kHeartbeatBody, sizeof kHeartbeatBody) == 0;
}
