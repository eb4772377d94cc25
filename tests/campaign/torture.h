#pragma once

#include <cstdint>

namespace campaign {

// One fixed scenario (link, request, answer, loss, link again, end) with each of its fallible calls
// failing, once and from then on. Throws a Fault when the client does not cope. Returns how often
// the scenario was played. For systems whose calls can be made to fail.
std::uint64_t Torture();

}  // namespace campaign
