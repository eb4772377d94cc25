#include "tools/posix/curses_screen.h"

#include <langinfo.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "tools/posix/sudden_end.h"

namespace {

// What gives the terminal back where curses may not be called.
termios g_modes;
std::string g_farewell;
ErrorPipe* g_errors = nullptr;

std::atomic<bool> g_continued{false};

extern "C" void OnContinued(int) {
  g_continued.store(true);
}

bool IsUnicodeLocale() {
  return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

const char* Capability(const char* name) {
  const char* const text = tigetstr(name);
  return text == nullptr || text == reinterpret_cast<char*>(-1) ? "" : text;
}

// The line's characters as far as they fit; those that have no place on a screen become '?'.
std::wstring CutToWidth(const std::string& text, int width) {
  std::wstring cut;
  std::mbstate_t state{};
  int columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    wchar_t character = L'?';
    std::size_t length = std::mbrtowc(&character, &text[at], text.size() - at, &state);
    if (length == 0 || length > text.size() - at) {
      state = {};
      character = L'?';
      length = 1;
    }
    const int taken = wcwidth(character);
    columns += taken < 0 ? 1 : taken;
    if (columns > width) break;
    cut += taken < 0 ? L'?' : character;
    at += length;
  }
  return cut;
}

std::optional<Key> KeyOfCode(int code) {
  constexpr int kCtrlD = 4, kCtrlH = 8, kCtrlU = 21, kDelete = 127, kLastByte = 255;
  switch (code) {
    case '\r':
    case '\n':
    case KEY_ENTER:
      return Key{Key::Kind::kEnter, {}};
    case kCtrlH:
    case kDelete:
    case KEY_BACKSPACE:
      return Key{Key::Kind::kBackspace, {}};
    case kCtrlU:
      return Key{Key::Kind::kEraseLine, {}};
    case kCtrlD:
      return Key{Key::Kind::kEndOfInput, {}};
    case KEY_PPAGE:
      return Key{Key::Kind::kPageUp, {}};
    case KEY_NPAGE:
      return Key{Key::Kind::kPageDown, {}};
    default:
      if ((code < ' ' && code != '\t') || code > kLastByte) return {};
      return Key{Key::Kind::kByte, static_cast<char>(code)};
  }
}

}  // namespace

std::unique_ptr<Screen> OpenScreen() {
  return CursesScreen::Open();
}

std::unique_ptr<Screen> CursesScreen::Open() {
  std::setlocale(LC_CTYPE, "");
  if (tcgetattr(STDOUT_FILENO, &g_modes) != 0) return nullptr;
  SCREEN* const screen = newterm(nullptr, stdout, stdin);
  if (screen == nullptr) return nullptr;
  if (*Capability("cup") == '\0') {
    endwin();
    delscreen(screen);
    return nullptr;
  }
  return std::unique_ptr<Screen>(new CursesScreen(screen));
}

CursesScreen::CursesScreen(SCREEN* screen)
    : m_screen(screen), m_unicode(IsUnicodeLocale()), m_typing(isatty(STDIN_FILENO) == 1) {
  g_errors = &m_errors;
  g_farewell = std::string(Capability("sgr0")) + Capability("cnorm") + Capability("rmkx") +
               Capability("rmcup");
  BeforeSuddenEnd(&GiveTerminalBack);
  signal(SIGCONT, &OnContinued);
  cbreak();
  noecho();
  set_escdelay(25);
  nodelay(stdscr, TRUE);
  keypad(stdscr, TRUE);
  SetColors();
}

CursesScreen::~CursesScreen() {
  signal(SIGCONT, SIG_DFL);
  curs_set(1);
  endwin();
  delscreen(m_screen);
  ForgetSuddenEnd();
  g_errors = nullptr;
}

// The system's calls alone: it runs in signal handlers.
void CursesScreen::GiveTerminalBack() {
  tcsetattr(STDOUT_FILENO, TCSANOW, &g_modes);
  if (write(STDOUT_FILENO, g_farewell.data(), g_farewell.size()) < 0) return;
  g_errors->Spill();
}

void CursesScreen::SetColors() {
  if (!has_colors() || start_color() != OK) return;
  use_default_colors();
  constexpr short kColors[] = {COLOR_GREEN, COLOR_YELLOW, COLOR_RED};  // as LineStyle has them
  short pair = 0;
  for (const short color : kColors) init_pair(++pair, COLOR_BLACK, color);
  m_has_colors = true;
}

// Asked for each time: a screen without a keyboard gets no word of a change.
ScreenSize CursesScreen::GetSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0 &&
      (size.ws_row != LINES || size.ws_col != COLS)) {
    resizeterm(size.ws_row, size.ws_col);
  }
  return {COLS, LINES};
}

void CursesScreen::Paint(const std::vector<ScreenLine>& lines, bool cursor) {
  if (g_continued.exchange(false)) {  // the shell and what it ran have used the terminal
    reset_prog_mode();
    clearok(stdscr, TRUE);
  }
  erase();
  int row = 0;
  for (const ScreenLine& line : lines) PaintLine(row++, line);
  curs_set(cursor ? 1 : 0);
  refresh();
}

void CursesScreen::PaintLine(int row, const ScreenLine& line) {
  const std::wstring text = CutToWidth(line.text, COLS);
  mvaddnwstr(row, 0, text.data(), static_cast<int>(text.size()));
  if (line.style == LineStyle::kPlain) return;
  const auto pair = static_cast<short>(line.style);
  mvchgat(row, 0, -1, m_has_colors ? A_NORMAL : A_REVERSE, m_has_colors ? pair : short{0}, nullptr);
}

// Bytes instead of characters: of those that the locale does not know, curses makes none.
std::optional<Key> CursesScreen::ReadKey() {
  for (int code = 0; m_typing && (code = wgetch(stdscr)) != ERR;) {
    if (const auto key = KeyOfCode(code)) return key;
  }
  return {};
}
