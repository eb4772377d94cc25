#pragma once

#define NCURSES_NOMACROS  // their names are common words
#include <curses.h>
#include <termios.h>

#include <memory>
#include <string>

#include "tools/posix/error_pipe.h"
#include "tools/terminal/screen.h"

// A screen made by curses.
class CursesScreen final : public Screen {
 public:
  // Null when the terminal cannot move its cursor.
  static std::unique_ptr<Screen> Open();
  ~CursesScreen() override;

  ScreenSize GetSize() override;
  bool HasUnicode() const override { return m_unicode; }
  void Paint(const std::vector<ScreenLine>& lines, bool cursor) override;
  std::optional<Key> ReadKey() override;
  std::string TakeErrorText() override { return m_errors.Take(); }

 private:
  explicit CursesScreen(SCREEN* screen);

  static void GiveTerminalBack();
  void SetColors();
  void PaintLine(int row, const ScreenLine& line);

  SCREEN* const m_screen;
  const bool m_unicode;
  const bool m_typing;  // the standard input is a terminal
  bool m_has_colors = false;
  ErrorPipe m_errors;
};
