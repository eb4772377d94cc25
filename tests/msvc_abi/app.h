// What every application here stands on in place of a runtime: its start, its report and its heap.
#pragma once

struct Arguments {
  char* host;
  int port;
};

// Each application's own part, run after the start.
void RunCases(const Arguments& arguments);

// One line of the report; the process ends with 1 when any of them is a FAIL.
void Check(bool holds, const char* what);
void CheckEqual(int actual, int expected, const char* what);
void Note(const char* what, int value);

int CountThreads();
int CountHandles();
