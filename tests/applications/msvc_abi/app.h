// What every application here stands on in place of a runtime: its start, its report, and a window.
#pragma once

struct Arguments {
  char* host;
  int port;
};

// Each application's own part, run after the start.
void RunCases(const Arguments& server);

// One line of the report; the process ends with 1 when any of them is a FAIL.
void Check(bool holds, const char* what);
void CheckEqual(int actual, int expected, const char* what);

int CountThreads();
int CountHandles();

// A window that receives notifications and is never shown.
class Inbox {
 public:
  static constexpr unsigned kMessage = 0x8000 + 17;

  Inbox();
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  unsigned Window() const { return reinterpret_cast<unsigned>(m_window); }

  // Waits for the next notification, at most 10 seconds; false at the limit.
  bool Take(char** body, int* value);
  // Whether the next one is this link event.
  bool TakeEvent(int event);

 private:
  void* m_window;
};
