#pragma once

namespace platform {

// The same descriptor under a number above those of the standard streams. A host may have closed
// these, and what is written to its standard error must never end up in a link. -1 stays -1, and
// when there is no other number the descriptor is closed and the result is -1.
int AboveStandardStreams(int descriptor);

}  // namespace platform
