// This program's own functions before the system's for opening, connecting and closing sockets.
#pragma once

#include <cstddef>

namespace testkit {

// Sockets of this process, those of the kit included.
std::size_t OpenSockets();

// No socket is opened while there are so many. Returns the limit before.
std::size_t SetSocketLimit(std::size_t sockets);

}  // namespace testkit
