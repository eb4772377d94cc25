#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace testkit {

// While it lives everything that the process writes to its standard error stream, on any thread,
// is kept here instead. Reports of the sanitizers still go where they went before. One at a time.
class StderrCapture {
 public:
  StderrCapture();
  ~StderrCapture();
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  std::string Text() const;
  // The lines that contain the text, without their ends; an unfinished last line counts.
  std::vector<std::string> LinesWith(const std::string& part) const;
  // Waits until there is one.
  bool WaitForLine(const std::string& part, std::chrono::milliseconds limit) const;

 private:
  const std::filesystem::path m_file;  // what was written
  const int m_original;                // where it went before
};

}  // namespace testkit
