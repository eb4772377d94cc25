// For builds without a screen.
#include "tools/terminal/screen.h"

std::unique_ptr<Screen> OpenScreen() {
  return nullptr;
}
