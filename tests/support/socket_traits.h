// In what the systems' sockets differ, where a test has to know.
#pragma once

#include "tests/support/peer.h"

namespace testkit {

bool IsWin32();

// Whether a connect that failed makes its socket writable.
bool FailedConnectsAreWritable();

// What WaitClosed tells of a link that was reset. Emulated sockets may end in order first.
LinkEnd EndOfResetLinks();

}  // namespace testkit
