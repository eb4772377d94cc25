#include "tools/common/json_object.h"

#include "00shcode/mytoolkit/text.h"
#include "tools/common/body_text.h"

namespace {

std::string Quote(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += {'\\', c};
    } else if (static_cast<unsigned char>(c) < 0x20) {
      quoted += ft::FormatString("\\u%04x", static_cast<unsigned>(c));
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace

JsonObject& JsonObject::Add(const char* name, const std::string& value) {
  return AddRaw(name, Quote(value));
}

JsonObject& JsonObject::Add(const char* name, std::int64_t value) {
  return AddRaw(name, std::to_string(value));
}

JsonObject& JsonObject::Add(const char* name, double value) {
  return AddRaw(name, ft::FormatString("%.3f", value));
}

JsonObject& JsonObject::AddBody(const std::string& body, bool hex) {
  const auto length = static_cast<std::int32_t>(body.size());
  Add("bytes", std::int64_t{length});
  if (!hex && IsPrintableText(body)) return Add("text", body);
  return Add("hex", ft::BytesToHex(body.data(), length, 1));
}

JsonObject& JsonObject::AddRaw(const char* name, const std::string& value) {
  m_members += (m_members.empty() ? "" : ",") + Quote(name) + ":" + value;
  return *this;
}
