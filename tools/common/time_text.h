// Times as text. Functions without state.
#pragma once

#include <cstdint>
#include <string>

#include "00shcode/mytoolkit/clock.h"

// A wall-clock reading as local time of day: "23:59:59.999".
std::string ShowTimeOfDay(const FTTime& time);

// A wall-clock reading from 1970 on, as ISO 8601 has it: "2026-01-31T23:59:59.999Z".
std::string ShowUtcTime(const FTTime& time);

// "0:01:23" in hours, minutes and seconds.
std::string ShowDuration(std::int64_t milliseconds);
