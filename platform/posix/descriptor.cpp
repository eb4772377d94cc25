#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

int AboveStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int higher = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return higher;
}

}  // namespace platform
