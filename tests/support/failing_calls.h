#pragma once

namespace testkit {

// The next call in this process, the kit's own included, does nothing but fail with one of the
// system's error numbers.
void FailNextConnect(int system_error);
void FailNextAccept(int system_error);

}  // namespace testkit
