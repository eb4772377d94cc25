// Lines on the standard output. Any thread; lines of different threads are never mixed.
#pragma once

#include <string>

// Writes the text and a line end, at once.
void PrintLine(const std::string& text);

// The same behind the local time of day.
void PrintStamped(const std::string& text);
