#include "tools/capture/end_sending.h"

#include <winsock2.h>

namespace capture {

void EndSending(FTSocket socket) {
  shutdown(static_cast<SOCKET>(socket), SD_SEND);
}

}  // namespace capture
