// The system's own calls, each made once: what a backend supplies for platform/*.cpp, which adds
// the rules that hold on every system.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace platform::backend {

std::uint32_t TickCount();

// Where a call fails, *error says why; the sets of a wait are then as they were.
Socket Accept(Socket listening, SocketAddress* peer, SocketError* error);  // kNoSocket: failed
int Receive(Socket socket, void* buffer, int length, SocketError* error);  // 0: failed
int Send(Socket socket, const void* data, int length, SocketError* error);
int Wait(SocketSet* read, SocketSet* write, int timeout_ms, SocketError* error);  // -1: failed

// kNone: connected; kInProgress: the system goes on connecting.
SocketError Connect(Socket socket, const SocketAddress& remote);

// Reads and clears the error that a connect in the background ended with; false when there is one.
bool TakeSuccess(Socket socket);

}  // namespace platform::backend
