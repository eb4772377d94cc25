#pragma once

#include <cstdint>

namespace campaign {

// One fixed scenario (link, request, answer, loss, link again, end) with each of its fallible calls
// failing, once and from then on. Throws std::runtime_error when the client does not cope.
// Returns how often the scenario was played.
int Torture();

}  // namespace campaign
