#include "tools/server/bind_error.h"

#include <cerrno>

BindError GetLastBindError() {
  switch (errno) {
    case EADDRINUSE:
      return BindError::kInUse;
    case EADDRNOTAVAIL:
      return BindError::kNotLocal;
    case EACCES:
    case EPERM:
      return BindError::kNotPermitted;
    default:
      return BindError::kOther;
  }
}
