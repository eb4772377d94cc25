#include "tests/support/stderr_capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "tests/support/socket_io.h"

// There in sanitizer builds only.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);

namespace testkit {

namespace {

void SendSanitizerReportsTo(int fd) {
  if (__sanitizer_set_report_fd == nullptr) return;
  __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
}

void Redirect(int from, int to) {
  std::fflush(stderr);
  if (dup2(from, to) < 0) ThrowSystemError("dup2");
}

}  // namespace

StderrCapture::StderrCapture()
    : m_file(memfd_create("captured-stderr", MFD_CLOEXEC)),
      m_original(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
  if (m_file < 0 || m_original < 0) ThrowSystemError("capture of standard error");
  SendSanitizerReportsTo(m_original);
  Redirect(m_file, STDERR_FILENO);
}

StderrCapture::~StderrCapture() {
  Redirect(m_original, STDERR_FILENO);
  SendSanitizerReportsTo(STDERR_FILENO);
  close(m_original);
  close(m_file);
}

std::string StderrCapture::Text() const {
  std::string text;
  char piece[4096];
  for (;;) {
    const ssize_t count = pread(m_file, piece, sizeof piece, static_cast<off_t>(text.size()));
    if (count < 0) ThrowSystemError("pread");
    if (count == 0) return text;
    text.append(piece, static_cast<std::size_t>(count));
  }
}

}  // namespace testkit
