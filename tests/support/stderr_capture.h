#pragma once

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

// There in sanitizer builds only.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);

namespace testkit {

inline void SendSanitizerReportsTo(std::intptr_t fd) {
  if (__sanitizer_set_report_fd) __sanitizer_set_report_fd(reinterpret_cast<void*>(fd));
}

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
  int Count(const std::string& part) const {
    int count = 0;
    const std::string text = Text();
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
    return count;
  }

 private:
  const std::filesystem::path m_file =
      std::filesystem::temp_directory_path() / ("stderr-" + std::to_string(getpid()));
  const int m_original = dup(STDERR_FILENO);
};

}  // namespace testkit
