#pragma once

#include <cstdint>
#include <string>

#if defined(__GNUC__)
#define FT_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define FT_PRINTF(format_index, first_argument)
#endif

namespace ft {

// printf-style, of any length.
std::string FormatString(const char* format, ...) FT_PRINTF(1, 2);

// Splits at the last "/" or "\"; without one the directory is empty.
void SplitPath(const std::string& path, std::string* directory, std::string* file_name);

constexpr std::int32_t kAlignLeft = 1;
constexpr std::int32_t kAlignRight = 2;

// Exactly width characters: the text's first ones, or the text with fill characters behind it
// (kAlignLeft) or before it (anything else). A null text is empty.
std::string PadString(const char* text, std::size_t width, std::int32_t alignment, char fill);

// Two digits a byte, nothing between; a count below 1 gives an empty string.
std::string BytesToHex(const void* bytes, std::int32_t count, std::int32_t lowercase);

}  // namespace ft
