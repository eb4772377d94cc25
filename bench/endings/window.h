#pragma once

#include "client/ftwindow.h"

namespace endings {

// A window of the application's.
class Window {
 public:
  Window() = default;
  ~Window() { Destroy(); }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  unsigned int Get() const { return m_window; }
  void Destroy() { FTDestroyWindow(m_window); }

 private:
  const unsigned int m_window = FTCreateWindow();
};

}  // namespace endings
