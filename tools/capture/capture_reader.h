#pragma once

#include <string>
#include <vector>

#include "tools/capture/frame.h"

namespace capture {

// All frames of a capture file (pcapng, of either byte order) in the file's order. What it does not
// know is passed over, and so is a block at the end that was not written to its end. Throws
// std::runtime_error when the file cannot be read or has another format.
std::vector<Frame> ReadCapture(const std::string& path);

}  // namespace capture
