#include "tests/support/stderr_capture.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/support/wait_until.h"

// There in sanitizer builds only.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);

namespace testkit {

namespace {

void SendSanitizerReportsTo(int fd) {
  if (__sanitizer_set_report_fd == nullptr) return;
  __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
}

void Redirect(int from) {
  std::fflush(stderr);
  if (dup2(from, STDERR_FILENO) < 0) throw std::runtime_error("standard error stays as it is");
}

}  // namespace

StderrCapture::StderrCapture()
    : m_file(std::filesystem::temp_directory_path() / ("stderr-" + std::to_string(getpid()))),
      m_original(dup(STDERR_FILENO)) {
  std::FILE* const file = std::fopen(m_file.string().c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("no file " + m_file.string());
  SendSanitizerReportsTo(m_original);
  Redirect(fileno(file));
  std::fclose(file);
}

StderrCapture::~StderrCapture() {
  Redirect(m_original);
  SendSanitizerReportsTo(STDERR_FILENO);
  close(m_original);
  std::filesystem::remove(m_file);
}

std::string StderrCapture::Text() const {
  std::ifstream file(m_file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::string> StderrCapture::LinesWith(const std::string& part) const {
  std::vector<std::string> lines;
  std::istringstream text(Text());
  for (std::string line; std::getline(text, line);) {
    if (line.find(part) != std::string::npos) lines.push_back(line);
  }
  return lines;
}

bool StderrCapture::WaitForLine(const std::string& part, std::chrono::milliseconds limit) const {
  return WaitUntil([&] { return !LinesWith(part).empty(); }, limit);
}

}  // namespace testkit
