#pragma once

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

// There in sanitizer builds only.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);

namespace testkit {

// Keeps what the process writes to standard error, reports of sanitizers excepted. One at a time.
class StderrCapture {
 public:
  StderrCapture() {
    SendSanitizerReportsTo(m_original);
    std::FILE* const file = std::fopen(m_file.string().c_str(), "wb");
    dup2(fileno(file), STDERR_FILENO);
    std::fclose(file);
  }
  ~StderrCapture() {
    dup2(m_original, STDERR_FILENO);
    SendSanitizerReportsTo(STDERR_FILENO);
    close(m_original);
    std::filesystem::remove(m_file);
  }

  std::string Text() const {
    std::string text;
    std::getline(std::ifstream(m_file, std::ios::binary), text, '\0');
    return text;
  }
  std::vector<std::string> LinesWith(const std::string& part) const {
    std::vector<std::string> lines;
    std::ifstream file(m_file, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
      if (line.find(part) != std::string::npos) lines.push_back(line);
    }
    return lines;
  }

 private:
  static void SendSanitizerReportsTo(std::intptr_t fd) {
    if (__sanitizer_set_report_fd) __sanitizer_set_report_fd(reinterpret_cast<void*>(fd));
  }

  const std::filesystem::path m_file =
      std::filesystem::temp_directory_path() / ("stderr-" + std::to_string(getpid()));
  const int m_original = dup(STDERR_FILENO);
};

}  // namespace testkit
