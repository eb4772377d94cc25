#include "tools/posix/error_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

constexpr int kPipeBytes = 1 << 20;  // a busy reader loses nothing

}  // namespace

ErrorPipe::ErrorPipe() {
  if (isatty(STDERR_FILENO) != 1) return;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[0], F_SETPIPE_SZ, kPipeBytes);
  m_reader = ends[0];
  m_stream = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
}

ErrorPipe::~ErrorPipe() {
  if (m_reader < 0) return;
  Spill();
  close(m_reader);
  close(m_stream);
}

std::string ErrorPipe::Take() {
  std::string text;
  char part[4096];
  ssize_t count = 0;
  while (m_reader >= 0 && (count = read(m_reader, part, sizeof part)) > 0) {
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

void ErrorPipe::Spill() {
  if (m_reader < 0) return;
  dup2(m_stream, STDERR_FILENO);
  char part[4096];
  ssize_t count = 0;
  while ((count = read(m_reader, part, sizeof part)) > 0) {
    if (write(STDERR_FILENO, part, static_cast<std::size_t>(count)) < 0) return;
  }
}
