#include "tools/common/standard_streams.h"

#include <unistd.h>

// This system changes none.
void CarryBytesUnchanged() {}

bool IsTerminal(StandardStream stream) {
  return isatty(stream == StandardStream::kInput ? STDIN_FILENO : STDOUT_FILENO) == 1;
}
