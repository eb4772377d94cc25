#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

enum class LineStyle { kPlain, kGood, kWaiting, kBad };  // all but the first fill their line

struct ScreenLine {
  std::string text;  // UTF-8 without control characters
  LineStyle style = LineStyle::kPlain;
};

struct Key {
  enum class Kind { kByte, kEnter, kBackspace, kEraseLine, kEndOfInput, kPageUp, kPageDown };

  Kind kind = Kind::kByte;
  char byte = 0;  // of kByte: of a character's UTF-8
};

struct ScreenSize {
  int width = 0;
  int height = 0;
};

// The whole terminal, for as long as the object lives; the terminal is given back however the
// process ends, SIGKILL apart. What the process writes to a standard error stream that is the
// terminal is kept meanwhile, and written there in the end, the last 100,000 bytes or more. One
// thread, one object; no call waits for anybody.
class Screen {
 public:
  virtual ~Screen() = default;

  virtual ScreenSize GetSize() = 0;
  virtual bool HasUnicode() const = 0;

  // Shows the lines from the top, cut to the width; the cursor stands behind the last one or is
  // hidden.
  virtual void Paint(const std::vector<ScreenLine>& lines, bool cursor) = 0;

  // The next key that was typed, byte by byte; empty: none, or the standard input is no terminal.
  virtual std::optional<Key> ReadKey() = 0;

  // What was written to the standard error stream since the last call.
  virtual std::string TakeErrorText() = 0;
};

// Null: the terminal cannot show a screen, or this build has none.
std::unique_ptr<Screen> OpenScreen();
