// For the functions that stand before the system's: what SocketFaults was told.
#pragma once

#include "tests/support/socket_faults.h"

namespace testkit {

enum class FaultyCall { kSend, kReceive, kPoll };

// Brings this program's send, recv and poll into it, which alone makes them stand before the
// system's.
void LinkSocketHooks();

bool AreFaultsActive();

// The errno value with which the next call is to fail; 0 when it is to be carried out.
int TakeFault(FaultyCall call);
// How many of the bytes it may move.
std::size_t AllowedBytes(FaultyCall call, std::size_t asked);
void RecordCall(FaultyCall call, const SocketCall& seen);

}  // namespace testkit
