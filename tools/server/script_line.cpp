#include "tools/server/script_line.h"

#include <stdexcept>

namespace {

constexpr char kSpaces[] = " \t\r";
constexpr char kSigns[] = ",;";
constexpr char kDigits[] = "0123456789";
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

char ParseHexByte(const std::string& digits) {
  return static_cast<char>(std::stoi(digits, nullptr, 16));
}

bool AreHexDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of(kHexDigits) == std::string::npos;
}

}  // namespace

ScriptLine::ScriptLine(const std::string& line) {
  std::size_t at = 0;
  while ((at = line.find_first_not_of(kSpaces, at)) != std::string::npos && line[at] != '#') {
    if (line[at] == '"') {
      at = ReadQuoted(line, at + 1);
      continue;
    }
    const bool is_sign = std::string(kSigns).find(line[at]) != std::string::npos;
    const std::size_t end =
        is_sign ? at + 1 : line.find_first_of(std::string(kSpaces) + kSigns + "\"#", at);
    m_tokens.push_back({line.substr(at, end - at)});
    at = end == std::string::npos ? line.size() : end;
  }
}

// Returns where the line goes on behind the quotes.
std::size_t ScriptLine::ReadQuoted(const std::string& line, std::size_t begin) {
  Token token{{}, true};
  std::size_t at = begin;
  for (; at < line.size() && line[at] != '"'; ++at) {
    if (line[at] != '\\') {
      token.value += line[at];
      continue;
    }
    const char escaped = ++at < line.size() ? line[at] : '\0';
    const std::string hex = escaped == 'x' ? line.substr(at + 1, 2) : "";
    if (escaped == 'n') {
      token.value += '\n';
    } else if (escaped == 't') {
      token.value += '\t';
    } else if (escaped == '"' || escaped == '\\') {
      token.value += escaped;
    } else if (hex.size() == 2 && AreHexDigits(hex)) {
      token.value += ParseHexByte(hex);
      at += 2;
    } else {
      throw std::runtime_error(R"(in quotes only \n, \t, \\, \" and \xHH may follow a backslash)");
    }
  }
  if (at >= line.size()) throw std::runtime_error("the closing quotes are missing");
  m_tokens.push_back(token);
  return at + 1;
}

bool ScriptLine::TakeIf(const std::string& word) {
  if (IsAtEnd() || m_tokens[m_at].is_text || m_tokens[m_at].value != word) return false;
  ++m_at;
  return true;
}

void ScriptLine::Take(const std::string& word) {
  if (!TakeIf(word)) Refuse("'" + word + "'");
}

bool ScriptLine::IsNumber() const {
  return !IsAtEnd() && !m_tokens[m_at].is_text &&
         m_tokens[m_at].value.find_first_not_of(kDigits) == std::string::npos;
}

std::string ScriptLine::TakeText() {
  if (TakeIf("hex")) return TakeHex();
  if (!IsText()) Refuse("a text in quotes, or 'hex' and digits");
  return m_tokens[m_at++].value;
}

std::string ScriptLine::TakeHex() {
  if (IsAtEnd() || !AreHexDigits(m_tokens[m_at].value) || m_tokens[m_at].value.size() % 2 != 0) {
    Refuse("two hex digits for each byte");
  }
  const std::string digits = m_tokens[m_at++].value;
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) bytes += ParseHexByte(digits.substr(i, 2));
  return bytes;
}

std::int64_t ScriptLine::TakeNumber() {
  constexpr std::size_t kMostDigits = 9;
  if (!IsNumber()) Refuse("a number");
  const std::string& digits = m_tokens[m_at].value;
  if (digits.size() > kMostDigits || std::stoll(digits) > kMostNumber) {
    Refuse("a number up to " + std::to_string(kMostNumber));
  }
  return std::stoll(m_tokens[m_at++].value);
}

std::int64_t ScriptLine::TakeTimeMs() {
  const std::int64_t number = TakeNumber();
  if (TakeIf("ms")) return number;
  if (TakeIf("s")) return number * 1000;
  if (TakeIf("min")) return number * 60000;
  Refuse("'ms', 's' or 'min'");
}

void ScriptLine::Refuse(const std::string& expected) const {
  const std::string found = IsAtEnd()                ? "the line ends"
                            : m_tokens[m_at].is_text ? "there is \"" + m_tokens[m_at].value + "\""
                                                     : "there is '" + m_tokens[m_at].value + "'";
  throw std::runtime_error("expected " + expected + ", but " + found);
}
