#pragma once

#include <string>

#include "tools/capture/direction.h"
#include "tools/capture/package_stream.h"
#include "tools/common/body_text.h"

namespace capture {

// A package in words, on one line.
std::string ShowPackage(const WirePackage& package, Direction direction, BodyStyle style);

}  // namespace capture
