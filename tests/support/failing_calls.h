#pragma once

#include "tests/support/hooks.h"

namespace testkit {

// The next call in this process, the kit's own included, does nothing but fail with one of the
// system's error numbers.
inline void FailNextConnect(int system_error) {
  OrderFailures(Hooked::kConnect, system_error, 1);
}

inline void FailNextAccept(int system_error) {
  OrderFailures(Hooked::kAccept, system_error, 1);
}

}  // namespace testkit
