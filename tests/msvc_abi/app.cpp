#include "tests/msvc_abi/app.h"

#include "tests/msvc_abi/system.h"

namespace {

constexpr int kStandardOutput = -11;
constexpr unsigned kSnapshotThreads = 4;

constexpr int kAllHandles = 16;
constexpr int kTooSmall = static_cast<int>(0xC0000004U);

int g_faults = 0;
int g_checks = 0;

void PrintLine(const char* verdict, const char* what, const char* detail) {
  char line[512];
  const int length = wsprintfA(line, "%s %s%s\r\n", verdict, what, detail);
  unsigned written = 0;
  WriteFile(GetStdHandle(kStandardOutput), line, static_cast<unsigned>(length), &written, nullptr);
}

void Report(bool holds, const char* what, const char* detail) {
  ++g_checks;
  if (!holds) ++g_faults;
  PrintLine(holds ? "PASS" : "FAIL", what, holds ? "" : detail);
}

// Cuts the last word off the text; the words of a command line stand apart by single spaces here.
char* TakeLastWord(char* text) {
  char* end = text;
  while (*end != '\0') ++end;
  while (end > text && end[-1] == ' ') --end;
  *end = '\0';
  while (end > text && end[-1] != ' ') --end;
  if (end > text) end[-1] = '\0';
  return end;
}

Arguments ReadArguments() {
  char* const command_line = GetCommandLineA();
  const int port = atoi(TakeLastWord(command_line));
  return {TakeLastWord(command_line), port};
}

struct HandleTable {
  unsigned count;
  HandleEntry entries[1];
};

// The caller frees the table.
HandleTable* ReadHandleTable() {
  for (unsigned bytes = 1U << 20;; bytes *= 2) {
    void* const table = HeapAlloc(GetProcessHeap(), 0, bytes);
    const int status = NtQuerySystemInformation(kAllHandles, table, bytes, nullptr);
    if (status != kTooSmall) return static_cast<HandleTable*>(table);
    HeapFree(GetProcessHeap(), 0, table);
  }
}

int __stdcall EndAfterCrash(void* /*exception*/) {
  Report(false, "the application crashed", "");
  ExitProcess(1);
  return 0;
}

}  // namespace

void Check(bool holds, const char* what) {
  Report(holds, what, "");
}

void CheckEqual(int actual, int expected, const char* what) {
  char detail[64];
  wsprintfA(detail, ": is %d, should be %d", actual, expected);
  Report(actual == expected, what, detail);
}

void Note(const char* what, int value) {
  char detail[32];
  wsprintfA(detail, ": %d", value);
  PrintLine("note", what, detail);
}

int CountThreads() {
  const Handle snapshot = CreateToolhelp32Snapshot(kSnapshotThreads, 0);
  ThreadEntry entry{};
  entry.size = sizeof entry;
  int count = 0;
  for (int found = Thread32First(snapshot, &entry); found != 0;
       found = Thread32Next(snapshot, &entry)) {
    if (entry.process == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

// The system's own count of a process's handles is not kept everywhere; its table of all is.
int CountHandles() {
  HandleTable* const table = ReadHandleTable();
  int count = 0;
  for (unsigned i = 0; i < table->count; ++i) {
    if (table->entries[i].process == (GetCurrentProcessId() & 0xFFFF)) ++count;
  }
  HeapFree(GetProcessHeap(), 0, table);
  return count;
}

extern "C" void Start() {
  SetUnhandledExceptionFilter(&EndAfterCrash);
  const Arguments arguments = ReadArguments();
  Check(arguments.port > 0, "the command line names HOST and PORT");
  if (g_faults == 0) RunCases(arguments);
  Note("checks", g_checks);
  Note("faults", g_faults);
  ExitProcess(g_faults == 0 ? 0 : 1);
}
