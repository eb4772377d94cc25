#pragma once

#include "00shcode/ftmtsockimpl/sock.h"

namespace capture {

// The peer finds the end of the stream behind what was sent. Receiving goes on. Nothing happens for
// a broken socket.
void EndSending(FTSocket socket);

}  // namespace capture
