#include "tools/capture/package_text.h"

#include <cstdint>

#include "00shcode/mytoolkit/text.h"
#include "client/package.h"

namespace capture {

namespace {

constexpr std::size_t kMarkWord = 0;
constexpr std::size_t kLengthWord = 1;
constexpr std::size_t kChecksumWord = 2;
constexpr std::uint32_t kUsualMark = 0x01000000;
constexpr char kBalanceMark = 0x01;

std::string ShowWord(std::uint32_t word) {
  return ft::FormatString("%08X", word);
}

bool IsBalanceQuestion(const std::string& body, Direction direction) {
  return direction == Direction::kToServer && body.size() == 2 && body[0] == kBalanceMark;
}

std::string ShowSound(const WirePackage& package, Direction direction, BodyStyle style) {
  const std::string body = package.GetBody();
  if (package.IsHeartbeat()) return "heartbeat";
  if (IsBalanceQuestion(body, direction)) {
    return "balance question " + std::to_string(static_cast<unsigned char>(body[1]));
  }
  return "package of " + ShowBodyShort(body.data(), body.size(), style);
}

std::string ShowDamaged(const WirePackage& package, BodyStyle style) {
  const std::string body = package.GetBody();
  unsigned char head[ft::kPkgHeadLen];
  ft::EncodeHead(head, body.data(), static_cast<std::int32_t>(body.size()));
  return "WRONG CHECKSUM " + ShowWord(package.GetWord(kChecksumWord)) + ", right is " +
         ft::BytesToHex(&head[8], 4, 0) + ": package of " +
         ShowBodyShort(body.data(), body.size(), style);
}

std::string ShowByVerdict(const WirePackage& package, Direction direction, BodyStyle style) {
  switch (package.verdict) {
    case WirePackage::Verdict::kSound:
      return ShowSound(package, direction, style);
    case WirePackage::Verdict::kWrongChecksum:
      return ShowDamaged(package, style);
    case WirePackage::Verdict::kTooLong:
      return "TOO LONG: package of " + std::to_string(package.GetWord(kLengthWord)) + " bytes";
    default:
      return "NO PACKAGE: the length " + ShowWord(package.GetWord(kLengthWord)) +
             " is negative; what follows is passed on unread";
  }
}

}  // namespace

std::string ShowPackage(const WirePackage& package, Direction direction, BodyStyle style) {
  const std::uint32_t mark = package.GetWord(kMarkWord);
  const std::string unusual = mark == kUsualMark ? "" : "mark " + ShowWord(mark) + ", ";
  return unusual + ShowByVerdict(package, direction, style);
}

}  // namespace capture
