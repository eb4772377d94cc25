#include "tools/common/standard_streams.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>

void CarryBytesUnchanged() {
  if (!_isatty(_fileno(stdin))) _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
}

bool IsTerminal(StandardStream stream) {
  return _isatty(_fileno(stream == StandardStream::kInput ? stdin : stdout)) != 0;
}
