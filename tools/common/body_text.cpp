#include "tools/common/body_text.h"

#include <algorithm>
#include <cstdint>

#include "00shcode/mytoolkit/text.h"
#include "tools/common/count_text.h"

namespace {

constexpr std::size_t kShortBytes = 48;

unsigned char ByteAt(const std::string& text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

// Bytes of the character that begins at the index, or 0 when none that can be shown begins there.
std::size_t PrintableLength(const std::string& text, std::size_t index) {
  const unsigned char first = ByteAt(text, index);
  if (first < 0x80) return (first >= 0x20 && first != 0x7f) || first == '\t' ? 1 : 0;
  const std::size_t length = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (length == 0 || first > 0xf4 || index + length > text.size()) return 0;
  std::uint32_t code = first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = ByteAt(text, index + i);
    if ((next & 0xc0) != 0x80) return 0;
    code = code << 6 | (next & 0x3fU);
  }
  const std::uint32_t smallest = length == 2 ? 0xa0 : length == 3 ? 0x800 : 0x10000;
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  return code >= smallest && code <= 0x10ffff && !surrogate ? length : 0;
}

// Bytes of the characters that can be shown from the beginning on.
std::size_t CountPrintable(const std::string& text) {
  std::size_t end = 0;
  while (end < text.size()) {
    const std::size_t length = PrintableLength(text, end);
    if (length == 0) break;
    end += length;
  }
  return end;
}

}  // namespace

bool IsPrintableText(const std::string& body) {
  return CountPrintable(body) == body.size();
}

std::string ShowBody(const std::string& body, BodyStyle style) {
  if (style == BodyStyle::kTextIfPrintable && IsPrintableText(body)) return body;
  return "hex " + ft::BytesToHex(body.data(), static_cast<std::int32_t>(body.size()), 1);
}

std::string ShowPackage(const std::string& body, BodyStyle style, std::size_t most_bytes) {
  const std::string count = ShowCount(static_cast<std::int64_t>(body.size()), "byte") + ": ";
  if (body.size() <= most_bytes) return count + ShowBody(body, style);
  std::size_t end = most_bytes;
  while (end > 0 && (ByteAt(body, end) & 0xc0) == 0x80) --end;  // not inside a character
  return count + ShowBody(body.substr(0, end), style) + "...";
}

std::string ShowBodyShort(const char* body, std::size_t length, BodyStyle style) {
  const std::string count = ShowCount(static_cast<std::int64_t>(length), "byte");
  if (length == 0) return count;
  const std::string head(body, std::min(length, kShortBytes));
  const bool cut = head.size() < length;
  const std::size_t printable = CountPrintable(head);
  // The cut may fall into the last character.
  const bool is_text = style == BodyStyle::kTextIfPrintable &&
                       (printable == head.size() || (cut && head.size() - printable < 4));
  const std::string shown = is_text ? head.substr(0, printable)
                                    : ShowBody(head.substr(0, kShortBytes / 2), BodyStyle::kHex);
  const bool all = is_text ? !cut : length <= kShortBytes / 2;
  return count + ": " + shown + (all ? "" : "...");
}
