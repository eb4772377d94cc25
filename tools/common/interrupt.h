// Ctrl-C and the request to terminate (on Windows Ctrl-Break and the closing of the console), as a
// flag that loops look at.
#pragma once

// From now on the first of these sets the flag; a second one ends the process at once.
void CatchInterrupts();

// Any thread.
bool IsInterrupted();
