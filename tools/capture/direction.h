#pragma once

namespace capture {

enum class Direction { kToServer, kToApplication };

}  // namespace capture
