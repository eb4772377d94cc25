#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace testkit {

// While it lives everything that the process writes to its standard error stream, on any thread,
// is kept here instead. Reports of the sanitizers still go where they went before.
class StderrCapture {
 public:
  StderrCapture();
  ~StderrCapture();
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  std::string Text() const;
  // Without their line ends; an unfinished last line counts.
  std::vector<std::string> Lines() const;
  std::vector<std::string> LinesWith(const std::string& part) const;
  // Waits until a line contains the text.
  bool WaitForLine(const std::string& part, std::chrono::milliseconds limit) const;

 private:
  int m_file;      // what was written
  int m_original;  // where it went before
};

}  // namespace testkit
