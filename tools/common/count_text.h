// Numbers as people read them. Functions without state.
#pragma once

#include <cstdint>
#include <string>

// "1 byte", "2 bytes": the count and the unit, which takes an s for any count but 1.
std::string ShowCount(std::int64_t count, const char* unit);

// "1,234,567".
std::string ShowGrouped(std::int64_t number);
