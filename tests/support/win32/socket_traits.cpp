#include "tests/support/socket_traits.h"

namespace testkit {

bool IsWin32() {
  return true;
}

bool FailedConnectsAreWritable() {
  return false;  // one tells so in the exception set
}

}  // namespace testkit
