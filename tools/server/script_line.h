#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A line of a script in words, texts and punctuation, taken one after another. What cannot be taken
// throws std::runtime_error that says what was expected.
class ScriptLine {
 public:
  explicit ScriptLine(const std::string& line);

  // True at the end, and in front of a comment.
  bool IsAtEnd() const { return m_at == m_tokens.size(); }

  // Takes the word or sign if it is the next one.
  bool TakeIf(const std::string& word);
  void Take(const std::string& word);

  bool IsText() const { return !IsAtEnd() && m_tokens[m_at].is_text; }
  bool IsNumber() const;

  std::string TakeText();     // "..." or hex digits behind the word hex
  std::int64_t TakeNumber();  // at most kMostNumber
  std::int64_t TakeTimeMs();  // a number and its unit

  // Throws it, with the word that is there instead.
  [[noreturn]] void Refuse(const std::string& expected) const;

  static constexpr std::int64_t kMostNumber = 100000000;

 private:
  struct Token {
    std::string value;
    bool is_text = false;
  };

  std::size_t ReadQuoted(const std::string& line, std::size_t begin);
  std::string TakeHex();

  std::vector<Token> m_tokens;
  std::size_t m_at = 0;
};
