// The standard streams of the process.
#pragma once

enum class StandardStream { kInput, kOutput };

// From now on they carry bytes as they are: the program reads and writes the same ones on every
// system. Only what is typed at a console is read as the system reads lines. Call it before the
// streams are used.
void CarryBytesUnchanged();

bool IsTerminal(StandardStream stream);
