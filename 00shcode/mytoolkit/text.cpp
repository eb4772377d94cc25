#include "00shcode/mytoolkit/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kFirstTry = 1024;

// The length that the whole text needs, whatever fits into work; negative for a faulty format.
int FormatInto(std::string* work, const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(work->data(), work->size() + 1, format, again);
  va_end(again);
  return length;
}

}  // namespace

std::string ft::FormatString(const char* format, ...) {
  std::string work(kFirstTry, '\0');
  va_list arguments;
  va_start(arguments, format);
  int length = FormatInto(&work, format, arguments);
  if (length > static_cast<int>(work.size())) {
    work.resize(static_cast<std::size_t>(length));
    length = FormatInto(&work, format, arguments);
  }
  va_end(arguments);
  work.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return work;
}

void ft::SplitPath(const std::string& path, std::string* directory, std::string* file_name) {
  const std::size_t separator = path.find_last_of("/\\");
  if (separator == std::string::npos) {
    directory->clear();
    *file_name = path;
    return;
  }
  const std::string before = path.substr(0, separator);
  *file_name = path.substr(separator + 1);
  *directory = before;
}

std::string ft::PadString(const char* text, std::size_t width, std::int32_t alignment, char fill) {
  const std::size_t length = text == nullptr ? 0 : std::strlen(text);
  if (length == 0) return std::string(width, fill);
  if (length > width) return std::string(text, width);
  const std::string padding(width - length, fill);
  return alignment == ft::kAlignLeft ? text + padding : padding + text;
}

std::string ft::BytesToHex(const void* bytes, std::int32_t count, std::int32_t lowercase) {
  const char* const digits = lowercase != 0 ? "0123456789abcdef" : "0123456789ABCDEF";
  const auto* const first = static_cast<const unsigned char*>(bytes);
  std::string hex;
  for (std::int32_t i = 0; i < count; ++i) {
    hex += digits[first[i] >> 4];
    hex += digits[first[i] & 0x0F];
  }
  return hex;
}
