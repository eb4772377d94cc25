// The system's own calls, each made once: what a backend supplies for platform/*.cpp, which adds
// the rules that hold on every system.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace platform::backend {

std::uint32_t TickCount();

// Where a call fails, *error says why; the sets of a wait are then as they were.
Socket Accept(Socket listening, SocketAddress* peer, SocketError* error);  // kNoSocket: failed
int Receive(Socket socket, const BytePiece* pieces, int count, SocketError* error);  // 0: failed
int Send(Socket socket, const ConstBytePiece* pieces, int count, SocketError* error);

// extra (may be kNoSocket) ends the wait when it is readable and is not counted.
int Wait(SocketSet* read, SocketSet* write, Socket extra, int timeout_ms,
         SocketError* error);  // -1: failed
int WaitForOne(Socket socket, Readiness readiness, Socket extra, int timeout_ms,
               SocketError* error);

// The two halves of a Waker: a socket that is readable from Signal to Unsignal.
Socket OpenSignal();
void Signal(Socket signal);
void Unsignal(Socket signal);
void CloseSignal(Socket signal);

// kNone: connected; kInProgress: the system goes on connecting.
SocketError Connect(Socket socket, const SocketAddress& remote);

// Reads and clears the error that a connect in the background ended with; false when there is one.
bool TakeSuccess(Socket socket);

}  // namespace platform::backend
