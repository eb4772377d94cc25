#include "tests/msvc_abi/app.h"

#include "tests/msvc_abi/system.h"

namespace {

constexpr int kAllProcesses = 5;
constexpr int kAllHandles = 16;
constexpr int kTooSmall = static_cast<int>(0xC0000004U);
constexpr unsigned kLimitMs = 10000;
constexpr unsigned kRemove = 1;
constexpr unsigned kAnyInput = 0x04FF;

int g_faults = 0;

void Report(bool holds, const char* what, const char* detail) {
  char line[512];
  if (!holds) ++g_faults;
  const int length = wsprintfA(line, "%s %s%s\n", holds ? "PASS" : "FAIL", what, detail);
  _write(1, line, static_cast<unsigned>(length));
}

// What the system knows of all processes or of all handles; the caller frees it.
void* AskSystem(int what) {
  for (unsigned bytes = 1U << 18;; bytes *= 2) {
    void* const answer = HeapAlloc(GetProcessHeap(), 0, bytes);
    if (NtQuerySystemInformation(what, answer, bytes, nullptr) != kTooSmall) return answer;
    HeapFree(GetProcessHeap(), 0, answer);
  }
}

// Otherwise the result of a crash would be the debugger's.
int __stdcall EndAfterCrash(void* /*exception*/) {
  Report(false, "the application crashed", "");
  return TerminateProcess(reinterpret_cast<Handle>(-1), 1);
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

int CountThreads() {
  void* const processes = AskSystem(kAllProcesses);
  const auto* entry = static_cast<const ProcessEntry*>(processes);
  while (entry->process != GetCurrentProcessId()) {
    entry = reinterpret_cast<const ProcessEntry*>(reinterpret_cast<const char*>(entry) +
                                                  entry->next_offset);
  }
  const int threads = entry->threads;
  HeapFree(GetProcessHeap(), 0, processes);
  return threads;
}

// A process's own count of handles is not exact everywhere; the table of all handles is.
int CountHandles() {
  auto* const table = static_cast<HandleTable*>(AskSystem(kAllHandles));
  int count = 0;
  for (unsigned i = 0; i < table->count; ++i) {
    if (table->entries[i].process == (GetCurrentProcessId() & 0xFFFF)) ++count;
  }
  HeapFree(GetProcessHeap(), 0, table);
  return count;
}

Inbox::Inbox() {
  const auto message_only = reinterpret_cast<Handle>(-3);
  m_window =
      CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, message_only, nullptr, nullptr, nullptr);
}

Inbox::~Inbox() {
  DestroyWindow(m_window);
}

bool Inbox::Take(char** body, int* value) {
  const unsigned start = GetTickCount();
  WindowMessage message;
  while (PeekMessageA(&message, m_window, kMessage, kMessage, kRemove) == 0) {
    const unsigned waited = GetTickCount() - start;
    if (waited >= kLimitMs) return false;
    MsgWaitForMultipleObjects(0, nullptr, 0, kLimitMs - waited, kAnyInput);
  }
  *body = reinterpret_cast<char*>(message.w_param);
  *value = message.l_param;
  return true;
}

bool Inbox::TakeEvent(int event) {
  char* body = nullptr;
  int value = 0;
  return Take(&body, &value) && body == nullptr && value == event;
}

extern "C" void Start() {
  SetUnhandledExceptionFilter(&EndAfterCrash);
  int count = 0;
  int new_mode = 0;
  char** words = nullptr;
  char** environment = nullptr;
  __getmainargs(&count, &words, &environment, 0, &new_mode);
  CheckEqual(count, 3, "the command line names HOST and PORT");
  if (g_faults == 0) RunCases({words[1], atoi(words[2])});
  ExitProcess(g_faults == 0 ? 0 : 1);
}
