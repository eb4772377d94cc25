#pragma once

#include <cstdint>
#include <string>

// A JSON object on one line, made member by member.
class JsonObject {
 public:
  // The value is UTF-8 text.
  JsonObject& Add(const char* name, const std::string& value);
  JsonObject& Add(const char* name, std::int64_t value);
  JsonObject& Add(const char* name, double value);  // with three decimal places

  // A package's body: "bytes", and "text", or "hex" when it is not printable or hex is wanted.
  JsonObject& AddBody(const std::string& body, bool hex);

  std::string GetText() const { return "{" + m_members + "}"; }

 private:
  JsonObject& AddRaw(const char* name, const std::string& value);

  std::string m_members;
};
