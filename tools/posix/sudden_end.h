// Signals that end the process at once: a hang-up, a crash, and the second interrupt.
#pragma once

// From now on the function, which has to be fit for a signal handler, runs before each such end.
void BeforeSuddenEnd(void (*function)());

// From now on nothing runs.
void ForgetSuddenEnd();

// Ends the process by the signal, in the signal's handler.
void EndSuddenly(int signal_number);
