#include "tools/terminal/standard_streams.h"

// This system changes none.
void CarryBytesUnchanged() {}
