#include "tests/support/stderr_capture.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdint>
#include <cstdio>

#include "tests/support/socket_io.h"

namespace testkit {

namespace {

constexpr int kStderr = 2;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A file that goes with its last handle. The C runtime owns the handle of the number returned.
int OpenFile(const char* path, DWORD access, DWORD disposition) {
  const DWORD attributes = FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE;
  const HANDLE file =
      CreateFileA(path, access | DELETE, kShareAll, nullptr, disposition, attributes, nullptr);
  if (file == INVALID_HANDLE_VALUE) ThrowSystemError("capture of standard error");
  return _open_osfhandle(reinterpret_cast<std::intptr_t>(file), _O_BINARY | _O_APPEND);
}

void Redirect(int from, int to) {
  std::fflush(stderr);
  if (_dup2(from, to) != 0) ThrowSystemError("_dup2");
}

}  // namespace

StderrCapture::StderrCapture() : m_original(_dup(kStderr)) {
  char directory[MAX_PATH];
  char path[MAX_PATH];
  if (GetTempPathA(MAX_PATH, directory) == 0 || GetTempFileNameA(directory, "err", 0, path) == 0) {
    ThrowSystemError("temporary file");
  }
  // Writes of many threads go to the end whatever has been read.
  const int writing = OpenFile(path, FILE_APPEND_DATA | SYNCHRONIZE, TRUNCATE_EXISTING);
  m_file = OpenFile(path, GENERIC_READ, OPEN_EXISTING);
  Redirect(writing, kStderr);
  _close(writing);
}

StderrCapture::~StderrCapture() {
  Redirect(m_original, kStderr);
  _close(m_original);
  _close(m_file);
}

std::string StderrCapture::Text() const {
  const auto file = reinterpret_cast<HANDLE>(_get_osfhandle(m_file));
  std::string text;
  char piece[4096];
  for (;;) {
    OVERLAPPED position{};
    position.Offset = static_cast<DWORD>(text.size());
    DWORD count = 0;
    if (!ReadFile(file, piece, sizeof piece, &count, &position)) {
      if (GetLastError() == ERROR_HANDLE_EOF) return text;
      ThrowSystemError("ReadFile");
    }
    if (count == 0) return text;
    text.append(piece, count);
  }
}

}  // namespace testkit
