#include "tools/posix/error_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
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
    Keep(part, static_cast<std::size_t>(count));
  }
  return text;
}

// Half of what is there makes room, from the beginning of a line on.
void ErrorPipe::Keep(const char* text, std::size_t count) {
  char* const begin = m_kept.data();
  if (m_kept_count + count > m_kept.size()) {
    char* const end = begin + m_kept_count;
    char* const line_end = std::find(begin + m_kept.size() / 2, end, '\n');
    char* const rest = line_end == end ? end : line_end + 1;
    m_kept_count = static_cast<std::size_t>(std::copy(rest, end, begin) - begin);
  }
  std::copy_n(text, count, begin + m_kept_count);
  m_kept_count += count;
}

void ErrorPipe::Spill() {
  if (m_reader < 0) return;
  dup2(m_stream, STDERR_FILENO);
  char part[4096];
  ssize_t count = 0;
  while ((count = read(m_reader, part, sizeof part)) > 0) {
    Keep(part, static_cast<std::size_t>(count));
  }
  const bool whole = m_kept_count == 0 || m_kept[m_kept_count - 1] == '\n';
  if (write(STDERR_FILENO, m_kept.data(), m_kept_count) < 0 || whole) return;
  if (write(STDERR_FILENO, "\n", 1) < 0) return;
}
