// Bodies as a person reads them. Functions without state.
#pragma once

#include <cstddef>
#include <string>

enum class BodyStyle {
  kTextIfPrintable,  // hex digits when it is not
  kHex
};

// Two hex digits a byte behind "hex ", or the text itself.
std::string ShowBody(const std::string& body, BodyStyle style);

// The body's length and what ShowBody makes of it, or of about its first most_bytes.
std::string ShowPackage(const std::string& body, BodyStyle style, std::size_t most_bytes);

// The body's length and its beginning, at most about 60 columns.
std::string ShowBodyShort(const char* body, std::size_t length,
                          BodyStyle style = BodyStyle::kTextIfPrintable);

// True for UTF-8 text without control characters other than tabs.
bool IsPrintableText(const std::string& body);
