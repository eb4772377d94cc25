// What ftc tells the shell.
#pragma once

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitBadArguments = 2;

constexpr char kExitStatusHelp[] =
    "Exit status: 0 done; 1 it did not work, the reason is printed; 2 wrong arguments.";
