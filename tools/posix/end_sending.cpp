#include "tools/capture/end_sending.h"

#include <sys/socket.h>

namespace capture {

void EndSending(FTSocket socket) {
  shutdown(static_cast<int>(socket), SHUT_WR);
}

}  // namespace capture
