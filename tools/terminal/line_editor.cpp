#include "tools/terminal/line_editor.h"

#include <utility>

void LineEditor::Take(const Key& key) {
  if (m_ended) return;
  switch (key.kind) {
    case Key::Kind::kByte:
      m_text += key.byte;
      break;
    case Key::Kind::kEnter:
      FinishLine();
      break;
    case Key::Kind::kBackspace:
      // The bytes behind a character's first one.
      while (!m_text.empty() && (m_text.back() & 0xc0) == 0x80) m_text.pop_back();
      if (!m_text.empty()) m_text.pop_back();
      break;
    case Key::Kind::kEraseLine:
      m_text.clear();
      break;
    case Key::Kind::kEndOfInput:
      if (!m_text.empty()) FinishLine();
      m_ended = true;
      break;
    default:
      break;
  }
}

void LineEditor::FinishLine() {
  m_lines.push_back(std::exchange(m_text, {}));
}
