#include "tests/support/socket_traits.h"

namespace testkit {

bool IsWin32() {
  return false;
}

bool FailedConnectsAreWritable() {
  return true;
}

}  // namespace testkit
