#include "tools/server/bind_error.h"

#include <winsock2.h>

BindError GetLastBindError() {
  switch (WSAGetLastError()) {
    case WSAEADDRINUSE:
      return BindError::kInUse;
    case WSAEADDRNOTAVAIL:
      return BindError::kNotLocal;
    case WSAEACCES:
      return BindError::kNotPermitted;
    default:
      return BindError::kOther;
  }
}
