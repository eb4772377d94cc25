#include "tests/support/stderr_capture.h"

#include <sstream>

#include "tests/support/wait_until.h"

namespace testkit {

std::vector<std::string> StderrCapture::Lines() const {
  return LinesWith("");
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
